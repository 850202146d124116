# What makes an error in memory harder to exploit, as an interface target. Optimised builds only, as
# fortify needs it; sanitizers watch the others.
add_library(korrin_hardening INTERFACE)
add_library(Korrin::Hardening ALIAS korrin_hardening)

set(_optimised $<NOT:$<CONFIG:Debug>>)
target_compile_options(korrin_hardening INTERFACE
  -fstack-protector-strong
  $<${_optimised}:-U_FORTIFY_SOURCE>
  $<${_optimised}:-D_FORTIFY_SOURCE=2>
)
target_link_options(korrin_hardening INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
