# Copies of the engine's headers under the names that its callers include: <key_engine/crypto.h> and so on. They differ
# from the originals only in how they include each other.
set(callers_headers_folder "${PROJECT_BINARY_DIR}/include")
set(callers_headers)
foreach(header keygen/console.h src/crypto.h src/ec_crypto.h)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${header}")
  file(READ "${header}" text)
  string(REGEX REPLACE "#include \"(keygen|src)/([a-z_]+\\.h)\"" "#include <key_engine/\\2>" text "${text}")
  get_filename_component(name "${header}" NAME)
  file(GENERATE OUTPUT "${callers_headers_folder}/key_engine/${name}" CONTENT "${text}")
  list(APPEND callers_headers "${callers_headers_folder}/key_engine/${name}")
endforeach()
