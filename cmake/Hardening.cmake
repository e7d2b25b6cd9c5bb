# What cameras send is not to be trusted: programs and library of a release build carry the compiler's and the
# linker's guards. `ptzd_options` brings them.
set(RELEASE_BUILD $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
target_compile_options(ptzd_options INTERFACE $<${RELEASE_BUILD}:-fstack-protector-strong>)
target_link_options(ptzd_options INTERFACE $<${RELEASE_BUILD}:-fstack-protector-strong>)
if(NOT WIN32)
  target_compile_options(ptzd_options INTERFACE $<${RELEASE_BUILD}:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
  target_link_options(ptzd_options INTERFACE $<${RELEASE_BUILD}:LINKER:-z,relro,-z,now>)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()
