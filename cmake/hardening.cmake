# What compiler and linker can do against the use of a memory fault, as far as they know it. A set of
# flags that a distribution gives itself stays as it is.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

set(jumps -fcf-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)")
  set(jumps -mbranch-protection=standard)
endif()
foreach(flag -fstack-protector-strong -fstack-clash-protection ${jumps})
  string(MAKE_C_IDENTIFIER "ZORGENREG_HAS${flag}" has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has})
    add_compile_options(${flag})
  endif()
endforeach()

# It wants an optimizing compiler.
if(NOT "${CMAKE_CXX_FLAGS}" MATCHES "_FORTIFY_SOURCE")
  set(optimized $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  add_compile_options("$<${optimized}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()

# The tables of a process that point at functions are filled in at its start, then read-only.
foreach(flag relro now)
  check_linker_flag(CXX LINKER:-z,${flag} ZORGENREG_HAS_z_${flag})
  if(ZORGENREG_HAS_z_${flag})
    add_link_options(LINKER:-z,${flag})
  endif()
endforeach()

check_pie_supported(LANGUAGES C CXX)
