# The probe talks to the system's libHBAAPI, which loads vendor libraries
# named in /etc/hba.conf.
find_library(VT_HBAAPI_LIBRARY NAMES HBAAPI REQUIRED)
target_link_libraries(hbaapi_probe PRIVATE ${VT_HBAAPI_LIBRARY})
