# Finds libcrypto with headers and library of one and the same version.
#
# With OPENSSL_ROOT_DIR given, both come from that prefix and from nowhere else, also where it has the multi-arch
# layout (include/<triplet>, lib/<triplet>), which CMake's own search would pair with the system's library.

if(OPENSSL_ROOT_DIR)
  set(triplet "${CMAKE_LIBRARY_ARCHITECTURE}")
  find_path(OPENSSL_INCLUDE_DIR openssl/opensslv.h
    PATHS "${OPENSSL_ROOT_DIR}/include" "${OPENSSL_ROOT_DIR}/include/${triplet}" NO_DEFAULT_PATH)
  find_library(OPENSSL_CRYPTO_LIBRARY crypto
    PATHS "${OPENSSL_ROOT_DIR}/lib" "${OPENSSL_ROOT_DIR}/lib64" "${OPENSSL_ROOT_DIR}/lib/${triplet}" NO_DEFAULT_PATH)
  if(NOT OPENSSL_INCLUDE_DIR OR NOT OPENSSL_CRYPTO_LIBRARY)
    message(FATAL_ERROR "OPENSSL_ROOT_DIR=${OPENSSL_ROOT_DIR} holds no headers or no library of OpenSSL")
  endif()
endif()

find_package(OpenSSL 1.1.1 REQUIRED COMPONENTS Crypto)

# Headers that depend on the architecture, where the prefix keeps them apart.
if(OPENSSL_ROOT_DIR AND EXISTS "${OPENSSL_ROOT_DIR}/include/${CMAKE_LIBRARY_ARCHITECTURE}/openssl")
  set_property(TARGET OpenSSL::Crypto APPEND PROPERTY
    INTERFACE_INCLUDE_DIRECTORIES "${OPENSSL_ROOT_DIR}/include/${CMAKE_LIBRARY_ARCHITECTURE}")
endif()

# A pair of different versions compiles, and fails in the field.
if(NOT CMAKE_CROSSCOMPILING)
  try_run(matching_openssl_status matching_openssl_compiled
    "${PROJECT_BINARY_DIR}/matching_openssl" "${CMAKE_CURRENT_LIST_DIR}/matching_openssl.cpp"
    LINK_LIBRARIES OpenSSL::Crypto
    COMPILE_OUTPUT_VARIABLE matching_openssl_errors
    RUN_OUTPUT_VARIABLE matching_openssl_versions)
  if(NOT matching_openssl_compiled OR NOT matching_openssl_status STREQUAL "0")
    set(matching_openssl_pair "${OPENSSL_INCLUDE_DIR}, ${OPENSSL_CRYPTO_LIBRARY}")
    # Looked at again by the next configuration.
    unset(matching_openssl_status CACHE)
    unset(matching_openssl_compiled CACHE)
    unset(OPENSSL_INCLUDE_DIR CACHE)
    unset(OPENSSL_CRYPTO_LIBRARY CACHE)
    message(FATAL_ERROR "The headers of OpenSSL and its library do not belong together: "
      "${matching_openssl_pair}\n${matching_openssl_versions}${matching_openssl_errors}")
  endif()
endif()
