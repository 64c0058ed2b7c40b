# Finds libcrypto with headers and a library of the same version.
#
# If OPENSSL_ROOT_DIR is given, both come from that prefix only, even if it has the multi-arch layout
# (include/<triplet>, lib/<triplet>): CMake's own search would pair such headers with the system's library.

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

# Headers that depend on the architecture, if the prefix keeps them apart.
if(OPENSSL_ROOT_DIR AND EXISTS "${OPENSSL_ROOT_DIR}/include/${CMAKE_LIBRARY_ARCHITECTURE}/openssl")
  set_property(TARGET OpenSSL::Crypto APPEND PROPERTY
    INTERFACE_INCLUDE_DIRECTORIES "${OPENSSL_ROOT_DIR}/include/${CMAKE_LIBRARY_ARCHITECTURE}")
endif()

# Headers and a library of different versions compile, and fail in the field.
if(NOT CMAKE_CROSSCOMPILING)
  try_run(matching_openssl_status matching_openssl_compiled
    "${PROJECT_BINARY_DIR}/matching_openssl" "${CMAKE_CURRENT_LIST_DIR}/matching_openssl.cpp"
    LINK_LIBRARIES OpenSSL::Crypto
    COMPILE_OUTPUT_VARIABLE matching_openssl_errors
    RUN_OUTPUT_VARIABLE matching_openssl_versions)
  if(NOT matching_openssl_compiled OR NOT matching_openssl_status STREQUAL "0")
    set(matching_openssl_pair "${OPENSSL_INCLUDE_DIR}, ${OPENSSL_CRYPTO_LIBRARY}")
    # The next configuration must search again.
    unset(matching_openssl_status CACHE)
    unset(matching_openssl_compiled CACHE)
    unset(OPENSSL_INCLUDE_DIR CACHE)
    unset(OPENSSL_CRYPTO_LIBRARY CACHE)
    message(FATAL_ERROR "The headers of OpenSSL and its library do not belong together: "
      "${matching_openssl_pair}\n${matching_openssl_versions}${matching_openssl_errors}")
  endif()
endif()
