# The PKCS#11 module that is loaded when SIGNING_HOST_PKCS11_MODULE is not set at run time, or always.
find_file(SOFTHSM_MODULE libsofthsm2.so PATHS /usr/lib /usr/lib64 /usr/local/lib
          PATH_SUFFIXES softhsm ${CMAKE_LIBRARY_ARCHITECTURE}/softhsm pkcs11)
mark_as_advanced(SOFTHSM_MODULE)
if(SOFTHSM_MODULE)
  set(default_pkcs11_module "${SOFTHSM_MODULE}")
else()
  set(default_pkcs11_module "")
endif()
set(PKCS11_MODULE "${default_pkcs11_module}" CACHE FILEPATH
    "PKCS#11 module of the token vendor, compiled in as the default")
option(SIGNING_HOST_FIXED_MODULE
       "Always load PKCS11_MODULE, whatever the variable SIGNING_HOST_PKCS11_MODULE says" OFF)
if(SIGNING_HOST_FIXED_MODULE AND NOT PKCS11_MODULE)
  message(FATAL_ERROR "SIGNING_HOST_FIXED_MODULE needs a module: set PKCS11_MODULE")
endif()
message(STATUS "PKCS11_MODULE: ${PKCS11_MODULE}")
