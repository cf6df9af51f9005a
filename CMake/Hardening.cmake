# With these flags a memory error ends the program, so that a hostile file cannot exploit it. They
# are for release builds: _FORTIFY_SOURCE needs optimized code, and debug builds have the sanitizers.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)

check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# Some compilers define _FORTIFY_SOURCE themselves.
add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
# With the last flag, position-independent code is as fast as other code.
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection
    -fno-semantic-interposition)
  string(MAKE_C_IDENTIFIER "REELWORK_HAS${flag}" has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has})
    add_compile_options(${flag})
  endif()
endforeach()
add_link_options(LINKER:-z,relro,-z,now)
