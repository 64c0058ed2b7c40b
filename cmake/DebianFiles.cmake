# Brings what the installation laid out into the form that Debian's packages have. Runs under cpack.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()

set(root "${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}")
set(documents "${root}/share/doc/keygen")

function(compress file)
  execute_process(COMMAND gzip -9n "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

compress("${root}/share/man/man1/keygen.1")

file(READ "${CPACK_KEYGEN_LICENSE}" license)
string(REGEX MATCH "Copyright [^\n]*" copyright "${license}")
string(REGEX REPLACE "^.*Copyright [^\n]*\n+" "" license "${license}")
string(STRIP "${license}" license)
string(REPLACE "\n\n" "\n.\n" license "${license}")
string(REPLACE "\n" "\n " license "${license}")
string(REGEX REPLACE "^Copyright \\([cC]\\) " "" copyright "${copyright}")
file(WRITE "${documents}/copyright" "\
Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: keygen

Files: *
Copyright: ${copyright}
License: Expat
 ${license}
")
file(REMOVE "${documents}/LICENSE")

file(RENAME "${documents}/CHANGELOG.md" "${documents}/changelog")
compress("${documents}/changelog")
# The time is that of SOURCE_DATE_EPOCH, where it is set.
string(TIMESTAMP time "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${documents}/changelog.Debian" "\
keygen (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) stable; urgency=medium

  * Package of version ${CPACK_PACKAGE_VERSION}.

 -- ${CPACK_PACKAGE_CONTACT}  ${time}
")
compress("${documents}/changelog.Debian")

# Where Debian's zsh looks.
file(MAKE_DIRECTORY "${root}/share/zsh/vendor-completions")
file(RENAME "${root}/share/zsh/site-functions/_keygen" "${root}/share/zsh/vendor-completions/_keygen")
file(REMOVE_RECURSE "${root}/share/zsh/site-functions")

# Packages leave group and others no right to write, and everybody the right to read.
execute_process(COMMAND chmod -R u=rwX,go=rX "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" COMMAND_ERROR_IS_FATAL ANY)
