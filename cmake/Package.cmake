# The Debian package: `cpack` in a build folder. script/package makes the one that is published.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME keygen)
set(CPACK_PACKAGE_VENDOR Halvex)
set(CPACK_PACKAGE_CONTACT "Halvex <keygen@halvex.example>" CACHE STRING "Maintainer of the package")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "generator of elliptic-curve key pairs and packets of eight")
set(CPACK_PACKAGE_DESCRIPTION "\
Generates key pairs on the curves prime256v1 and brainpoolP256t1: an encrypted
private key, the public key, and the hash of the public key; for a packet of
eight pairs also the hash of the table of their hashes. Fills files with random
bytes, too.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# The same modes under any umask of the caller.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Debian's own rules for what lies where, and in which form.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/DebianFiles.cmake")
set(CPACK_KEYGEN_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")

include(CPack)
