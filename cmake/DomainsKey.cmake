# The public key that verifies domain lists, a deployment constant: DOMAINS_PUBLIC_KEY names a
# PKCS#1 PEM file; without it a development key pair is made in the build folder.
set(DOMAINS_PUBLIC_KEY "" CACHE FILEPATH
    "PEM file (BEGIN RSA PUBLIC KEY) of the 1024-bit key that verifies signed domain lists")

if(DOMAINS_PUBLIC_KEY)
  get_filename_component(domains_key_file "${DOMAINS_PUBLIC_KEY}" ABSOLUTE
                         BASE_DIR "${CMAKE_SOURCE_DIR}")
  if(NOT EXISTS "${domains_key_file}")
    message(FATAL_ERROR "DOMAINS_PUBLIC_KEY: there is no file ${domains_key_file}")
  endif()
else()
  set(domains_key_folder "${CMAKE_BINARY_DIR}/development-key")
  set(domains_key_file "${domains_key_folder}/domains-public.pem")
  if(NOT EXISTS "${domains_key_file}")
    find_program(OPENSSL_PROGRAM openssl REQUIRED)
    file(MAKE_DIRECTORY "${domains_key_folder}")
    execute_process(
      COMMAND "${OPENSSL_PROGRAM}" genrsa -traditional
              -out "${domains_key_folder}/domains-private.pem" 1024
      COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET ERROR_QUIET)
    file(CHMOD "${domains_key_folder}/domains-private.pem" PERMISSIONS OWNER_READ OWNER_WRITE)
    execute_process(
      COMMAND "${OPENSSL_PROGRAM}" rsa -in "${domains_key_folder}/domains-private.pem"
              -RSAPublicKey_out -out "${domains_key_file}"
      COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET ERROR_QUIET)
  endif()
  message(STATUS "DOMAINS_PUBLIC_KEY is not set: this build trusts domain lists signed with its own "
                 "development key, ${domains_key_folder}/domains-private.pem. Do not ship it.")
endif()

file(READ "${domains_key_file}" domains_key_pem)
set(domains_key_problem "")
if(NOT domains_key_pem MATCHES
   "^[ \t\r\n]*-----BEGIN RSA PUBLIC KEY-----([A-Za-z0-9+/=\r\n]+)-----END RSA PUBLIC KEY-----[ \t\r\n]*$")
  set(domains_key_problem "it is not a PEM file of the form BEGIN RSA PUBLIC KEY")
else()
  string(REGEX REPLACE "[\r\n]" "" DOMAINS_PUBLIC_KEY_TEXT "${CMAKE_MATCH_1}")
  string(LENGTH "${DOMAINS_PUBLIC_KEY_TEXT}" domains_key_length)
  # The DER of such a key starts 30 81 89 02 81 81 00 and ends 02 03 01 00 01; the pattern is
  # base64's view of those bytes and of the modulus' set top bit.
  if(NOT domains_key_length EQUAL 188
     OR NOT DOMAINS_PUBLIC_KEY_TEXT MATCHES "^MIGJAoGBA[I-P][A-Za-z0-9+/]+AgMBAAE=$")
    set(domains_key_problem "it is not a 1024-bit RSA key with exponent 65537 (188 base64 characters)")
  endif()
endif()
if(domains_key_problem)
  message(FATAL_ERROR "DOMAINS_PUBLIC_KEY: ${domains_key_file} cannot be used: ${domains_key_problem}. "
    "Make one with: openssl rsa -in private.pem -RSAPublicKey_out -out public.pem")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${domains_key_file}")
