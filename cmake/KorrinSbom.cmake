# Writes the list of what is built and what it needs, as SPDX 2.3 (ISO/IEC 5962), after all targets
# are known: VornakKorrin.spdx.json in the build directory. SOURCE_DATE_EPOCH sets its date.
function(_korrin_sbom_id variable name)
  string(MAKE_C_IDENTIFIER ${name} id)
  string(REPLACE "_" "-" id ${id})
  set(${variable} SPDXRef-${id} PARENT_SCOPE)
endfunction()

function(_korrin_sbom_package json name version license)
  _korrin_sbom_id(id ${name})
  string(JSON count LENGTH "${${json}}" packages)
  string(JSON result SET "${${json}}" packages ${count} "{
    \"SPDXID\": \"${id}\",
    \"name\": \"${name}\",
    \"versionInfo\": \"${version}\",
    \"downloadLocation\": \"NOASSERTION\",
    \"licenseConcluded\": \"NOASSERTION\",
    \"licenseDeclared\": \"${license}\",
    \"filesAnalyzed\": false
  }")
  set(${json} "${result}" PARENT_SCOPE)
endfunction()

# _korrin_sbom_relate(document VornakKorrin DEPENDS_ON glibc...)
function(_korrin_sbom_relate json name type)
  _korrin_sbom_id(id ${name})
  foreach(other ${ARGN})
    _korrin_sbom_id(other_id ${other})
    string(JSON count LENGTH "${${json}}" relationships)
    string(JSON ${json} SET "${${json}}" relationships ${count}
      "{\"spdxElementId\": \"${id}\", \"relationshipType\": \"${type}\",
      \"relatedSpdxElement\": \"${other_id}\"}")
  endforeach()
  set(${json} "${${json}}" PARENT_SCOPE)
endfunction()

# The versions of libstdc++ and glibc that are compiled against, as their headers tell them.
function(_korrin_runtime_versions libstdcxx glibc)
  set(program ${PROJECT_BINARY_DIR}/CMakeFiles/korrin_runtimes)
  try_compile(compiled SOURCE_FROM_CONTENT runtimes.cpp "
    #include <cstdlib>
    #define TEXT(x) #x
    #define VALUE(x) TEXT(x)
    extern const char versions[];
    const char versions[] = \"libstdc++ \" VALUE(_GLIBCXX_RELEASE)
      \", glibc \" VALUE(__GLIBC__) \".\" VALUE(__GLIBC_MINOR__);
    int main(int argc, char **) { return versions[argc]; }
    " NO_CACHE COPY_FILE ${program})
  if(NOT compiled)
    message(WARNING "The versions of libstdc++ and glibc are unknown.")
    return()
  endif()
  file(STRINGS ${program} versions REGEX "^libstdc\\+\\+ .*, glibc ")
  string(REGEX MATCH "libstdc\\+\\+ (.*), glibc (.*)" versions "${versions}")
  set(${libstdcxx} "${CMAKE_MATCH_1}" PARENT_SCOPE)
  set(${glibc} "${CMAKE_MATCH_2}" PARENT_SCOPE)
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
  _korrin_sbom_package(document VornakKorrin "${PROJECT_VERSION}" MIT)
  _korrin_sbom_relate(document DOCUMENT DESCRIBES VornakKorrin)
  set(qt Qt${KORRIN_QT_MAJOR})
  foreach(component ${KORRIN_QT_COMPONENTS})
    _korrin_sbom_package(document ${qt}${component} "${${qt}${component}_VERSION}" LGPL-3.0-only)
    _korrin_sbom_relate(document VornakKorrin DEPENDS_ON ${qt}${component})
  endforeach()
  _korrin_runtime_versions(libstdcxx glibc)
  _korrin_sbom_package(document GCC-runtime "${libstdcxx}"
    "GPL-3.0-or-later WITH GCC-exception-3.1")
  _korrin_sbom_package(document glibc "${glibc}" LGPL-2.1-or-later)
  _korrin_sbom_relate(document VornakKorrin DEPENDS_ON GCC-runtime glibc)
  if(KORRIN_BUILD_TOOLS)
    _korrin_sbom_package(document VornakKorrin-tools "${PROJECT_VERSION}" MIT)
    _korrin_sbom_relate(document DOCUMENT DESCRIBES VornakKorrin-tools)
    _korrin_sbom_package(document cpp-httplib "${KORRIN_HTTPLIB_VERSION}" MIT)
    _korrin_sbom_package(document SQLite "${KORRIN_SQLITE_VERSION}" blessing)
    _korrin_sbom_package(document OpenSSL "${KORRIN_OPENSSL_VERSION}" Apache-2.0)
    _korrin_sbom_package(document nlohmann-json "${KORRIN_JSON_VERSION}" MIT)
    _korrin_sbom_package(document CLI11 "${KORRIN_CLI11_VERSION}" BSD-3-Clause)
    _korrin_sbom_relate(document VornakKorrin-tools DEPENDS_ON VornakKorrin ${qt}Core cpp-httplib
      SQLite OpenSSL nlohmann-json CLI11 GCC-runtime glibc)
  endif()
  file(WRITE ${PROJECT_BINARY_DIR}/VornakKorrin.spdx.json "${document}\n")
  install(FILES ${PROJECT_BINARY_DIR}/VornakKorrin.spdx.json DESTINATION ${CMAKE_INSTALL_DOCDIR})
endfunction()
