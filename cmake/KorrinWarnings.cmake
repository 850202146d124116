# Warning flags as an interface target; errors only where asked for (the presets that CI builds).
add_library(korrin_warnings INTERFACE)
add_library(Korrin::Warnings ALIAS korrin_warnings)

set(_common -Wall -Wextra -Wpedantic -Wcast-align -Wundef -Wformat=2)
if(KORRIN_WARNINGS_AS_ERRORS)
  list(APPEND _common -Werror)
endif()
# GCC's plain -Wshadow also warns of a constructor's parameter named like the member it sets.
target_compile_options(korrin_warnings INTERFACE
  ${_common}
  $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
)
