# The probe talks to the system's libHBAAPI, which loads vendor libraries
# named in /etc/hba.conf.
find_library(VT_HBAAPI_LIBRARY NAMES HBAAPI REQUIRED)
target_link_libraries(hbaapi_probe PRIVATE ${VT_HBAAPI_LIBRARY})
# libHBAAPI loads libvtsdm, a C++ library, with dlopen.  Under clang's
# AddressSanitizer the C++ runtime must be there from the start, or the
# sanitizer's hook for thrown exceptions finds nothing to call.
if(VT_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set_target_properties(hbaapi_probe PROPERTIES LINKER_LANGUAGE CXX)
  target_link_options(hbaapi_probe PRIVATE -Wl,--no-as-needed -lstdc++ -Wl,--as-needed)
endif()
