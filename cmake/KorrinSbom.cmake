# Writes the list of what is built and what it needs, as SPDX 2.3 (ISO/IEC 5962), after all targets
# are known: VornakKorrin.spdx.json in the build directory. SOURCE_DATE_EPOCH sets its date.
# @param parent  what depends on it, or DOCUMENT for what the document is about
function(_korrin_sbom_package json parent name version license)
  string(MAKE_C_IDENTIFIER ${name} id)
  string(REPLACE "_" "-" id ${id})
  string(JSON count LENGTH "${${json}}" packages)
  string(JSON result SET "${${json}}" packages ${count} "{
    \"SPDXID\": \"SPDXRef-${id}\",
    \"name\": \"${name}\",
    \"versionInfo\": \"${version}\",
    \"downloadLocation\": \"NOASSERTION\",
    \"licenseConcluded\": \"NOASSERTION\",
    \"licenseDeclared\": \"${license}\",
    \"filesAnalyzed\": false
  }")
  string(JSON count LENGTH "${result}" relationships)
  set(type DEPENDS_ON)
  if(parent STREQUAL "DOCUMENT")
    set(type DESCRIBES)
  endif()
  set(relationship "{\"spdxElementId\": \"SPDXRef-${parent}\",
    \"relationshipType\": \"${type}\", \"relatedSpdxElement\": \"SPDXRef-${id}\"}")
  string(JSON result SET "${result}" relationships ${count} "${relationship}")
  set(${json} "${result}" PARENT_SCOPE)
endfunction()

function(korrin_write_sbom)
  string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)
  string(UUID uuid NAMESPACE 6ba7b811-9dad-11d1-80b4-00c04fd430c8
    NAME "VornakKorrin ${PROJECT_VERSION} Qt ${KORRIN_QT_MAJOR}" TYPE SHA1)
  set(document "{
    \"spdxVersion\": \"SPDX-2.3\",
    \"dataLicense\": \"CC0-1.0\",
    \"SPDXID\": \"SPDXRef-DOCUMENT\",
    \"name\": \"VornakKorrin-${PROJECT_VERSION}\",
    \"documentNamespace\": \"urn:uuid:${uuid}\",
    \"creationInfo\": {
      \"created\": \"${created}\",
      \"creators\": [\"Tool: CMake-${CMAKE_VERSION}\"]
    },
    \"packages\": [],
    \"relationships\": []
  }")
  _korrin_sbom_package(document DOCUMENT VornakKorrin "${PROJECT_VERSION}" MIT)
  _korrin_sbom_package(document VornakKorrin "Qt${KORRIN_QT_MAJOR}"
    "${Qt${KORRIN_QT_MAJOR}Core_VERSION}" LGPL-3.0-only)
  if(KORRIN_BUILD_TOOLS)
    _korrin_sbom_package(document DOCUMENT VornakKorrin-tools "${PROJECT_VERSION}" MIT)
    _korrin_sbom_package(document VornakKorrin-tools cpp-httplib "${KORRIN_HTTPLIB_VERSION}" MIT)
    _korrin_sbom_package(document VornakKorrin-tools SQLite "${KORRIN_SQLITE_VERSION}" blessing)
    _korrin_sbom_package(document VornakKorrin-tools OpenSSL "${KORRIN_OPENSSL_VERSION}" Apache-2.0)
    _korrin_sbom_package(document VornakKorrin-tools nlohmann-json "${KORRIN_JSON_VERSION}" MIT)
    _korrin_sbom_package(document VornakKorrin-tools CLI11 "${KORRIN_CLI11_VERSION}" BSD-3-Clause)
  endif()
  file(WRITE ${PROJECT_BINARY_DIR}/VornakKorrin.spdx.json "${document}\n")
  install(FILES ${PROJECT_BINARY_DIR}/VornakKorrin.spdx.json DESTINATION ${CMAKE_INSTALL_DOCDIR})
endfunction()
