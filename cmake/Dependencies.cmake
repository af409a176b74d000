# NSS and NSPR: only the libraries that are called are linked (pkg-config's nss also names the
# S/MIME and TLS libraries).
find_package(PkgConfig REQUIRED)
pkg_check_modules(NSS REQUIRED nss)
pkg_check_modules(NSPR REQUIRED nspr)

add_library(nss INTERFACE)
target_include_directories(nss SYSTEM INTERFACE ${NSS_INCLUDE_DIRS} ${NSPR_INCLUDE_DIRS})
target_link_directories(nss INTERFACE ${NSS_LIBRARY_DIRS})
target_link_libraries(nss INTERFACE nss3 nssutil3 nspr4)

# The PKCS#11 headers alone, for code that calls a token but not NSS.
add_library(pkcs11_headers INTERFACE)
target_include_directories(pkcs11_headers SYSTEM INTERFACE ${NSS_INCLUDE_DIRS} ${NSPR_INCLUDE_DIRS})
