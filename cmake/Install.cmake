# Installs the programs, their manuals, completions for the shells, and the documents.
include(GNUInstallDirs)

configure_file(man/keygen.1.in man/keygen.1 @ONLY)
configure_file(man/keygen-verify.1.in man/keygen-verify.1 @ONLY)
set(KEYGEN_VERIFY "${PROJECT_BINARY_DIR}/bin/keygen-verify")
configure_file(verify/keygen-verify "${KEYGEN_VERIFY}" @ONLY)

# A program built against an OpenSSL in a prefix must find it after the installation, too.
if(OPENSSL_ROOT_DIR)
  get_filename_component(openssl_folder "${OPENSSL_CRYPTO_LIBRARY}" DIRECTORY)
  set_target_properties(keygen PROPERTIES INSTALL_RPATH "${openssl_folder}")
endif()

install(TARGETS keygen RUNTIME)
install(PROGRAMS "${KEYGEN_VERIFY}" TYPE BIN)
install(FILES "${PROJECT_BINARY_DIR}/man/keygen.1" "${PROJECT_BINARY_DIR}/man/keygen-verify.1"
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")

# Each shell's completion of keygen contains the table of options, without its comments and the blanks around its
# columns.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS completions/options)
file(READ completions/options table)
string(REGEX REPLACE "(\n(#[^\n]*)?)+" "\n" table "\n${table}")
string(REGEX REPLACE " *\\| *" "|" table "${table}")
string(STRIP "${table}" KEYGEN_OPTIONS)
foreach(completion keygen.bash _keygen keygen.fish)
  configure_file(completions/${completion}.in completions/${completion} @ONLY)
endforeach()

# Each shell has its own folder and its own rule for the file's name.
install(FILES "${PROJECT_BINARY_DIR}/completions/keygen.bash"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME keygen)
install(FILES completions/keygen-verify.bash
  DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME keygen-verify)
install(FILES "${PROJECT_BINARY_DIR}/completions/_keygen" completions/_keygen-verify
  DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
install(FILES "${PROJECT_BINARY_DIR}/completions/keygen.fish" completions/keygen-verify.fish
  DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")

# The documents are laid out as in the tree, so that the links between them work.
install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES docs/files.md docs/many.md docs/security.md docs/testing.md docs/performance.md
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs")
install(FILES docs/screens/pair.svg docs/screens/dialogue.svg DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs/screens")
