# The PKCS#11 module that is loaded when SIGNING_HOST_PKCS11_MODULE is not set at run time.
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
message(STATUS "PKCS11_MODULE: ${PKCS11_MODULE}")
