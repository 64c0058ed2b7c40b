# Installs what other programs need to use the engine: the archive, the headers, a CMake package and a pkg-config file.
# None of them contains the prefix, so the installation can be moved.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/KeyEngine")

# A caller must link the libraries that the archive was compiled against: no older ones, and no other major version.
string(REGEX MATCH "^([0-9]+)\\.[0-9]+" openssl_minimum "${OPENSSL_VERSION}")
math(EXPR openssl_limit "${CMAKE_MATCH_1} + 1")
set(qt_minimum "${Qt6_VERSION_MAJOR}.${Qt6_VERSION_MINOR}")
math(EXPR qt_limit "${Qt6_VERSION_MAJOR} + 1")

if(OPENSSL_ROOT_DIR)
  # An OpenSSL where no caller would look for it.
  get_target_property(openssl_folders OpenSSL::Crypto INTERFACE_INCLUDE_DIRECTORIES)
  set(openssl_headers "target_include_directories(KeyEngine::key_engine INTERFACE \"${openssl_folders}\")")
  set(openssl_place "if(NOT OPENSSL_ROOT_DIR AND NOT OPENSSL_INCLUDE_DIR)
  set(OPENSSL_INCLUDE_DIR \"${OPENSSL_INCLUDE_DIR}\")
  set(OPENSSL_CRYPTO_LIBRARY \"${OPENSSL_CRYPTO_LIBRARY}\")
endif()")
  list(TRANSFORM openssl_folders REPLACE "(.+)" "-I\"\\1\"" OUTPUT_VARIABLE openssl_cflags)
  list(JOIN openssl_cflags " " openssl_cflags)
  get_filename_component(openssl_folder "${OPENSSL_CRYPTO_LIBRARY}" DIRECTORY)
  set(openssl_libs "-L\"${openssl_folder}\" -Wl,-rpath,\"${openssl_folder}\" -lcrypto")
else()
  set(openssl_requires ", libcrypto >= ${openssl_minimum}, libcrypto < ${openssl_limit}")
endif()

install(TARGETS key_engine EXPORT KeyEngine
  ARCHIVE COMPONENT library
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(FILES ${callers_headers} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/key_engine" COMPONENT library)

configure_package_config_file(cmake/KeyEngineConfig.cmake.in cmake/KeyEngineConfig.cmake
  INSTALL_DESTINATION "${package_folder}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(cmake/KeyEngineConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/cmake/KeyEngineConfig.cmake" "${PROJECT_BINARY_DIR}/cmake/KeyEngineConfigVersion.cmake"
  DESTINATION "${package_folder}" COMPONENT library)
install(EXPORT KeyEngine NAMESPACE KeyEngine:: FILE KeyEngineTargets.cmake
  DESTINATION "${package_folder}" COMPONENT library)

set(pkgconfig_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH prefix_from_pkgconfig "/prefix/${pkgconfig_folder}" /prefix)
configure_file(cmake/key_engine.pc.in cmake/key_engine.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/cmake/key_engine.pc" DESTINATION "${pkgconfig_folder}" COMPONENT library)

install(FILES docs/library.md DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" COMPONENT library)
install(DIRECTORY docs/library DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" COMPONENT library)
