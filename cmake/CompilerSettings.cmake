# Warnings and hardening, for the project's own targets only.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()

add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
  -Wall
  -Wextra
  -Wpedantic
  -Wcast-qual
  -Wconversion
  -Wformat=2
  -Wnull-dereference
  -Wshadow
  -Wsign-conversion
  -Wundef
)
# OpenSSL's API level: with it, newer versions give no deprecation warnings.
target_compile_definitions(project_warnings INTERFACE OPENSSL_API_COMPAT=0x10101000L)

option(KEYGEN_WARNINGS_AS_ERRORS "Stop the build at a warning" OFF)
if(KEYGEN_WARNINGS_AS_ERRORS)
  target_compile_options(project_warnings INTERFACE -Werror)
endif()

# Shipped code is hardened, too.
add_library(project_settings INTERFACE)
target_link_libraries(project_settings INTERFACE project_warnings)

option(KEYGEN_HARDENING "Build with the hardening flags of the compiler and the linker" ON)
if(KEYGEN_HARDENING)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "HAS${flag}" has_flag)
    check_cxx_compiler_flag(${flag} ${has_flag})
    if(${has_flag})
      target_compile_options(project_settings INTERFACE ${flag})
    endif()
  endforeach()
  # Fortified functions need an optimised build.
  target_compile_options(project_settings INTERFACE
    $<$<NOT:$<CONFIG:Debug,>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug,>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(project_settings INTERFACE -Wl,-z,relro -Wl,-z,noexecstack)
endif()

# If a function were bound at its first call, the dynamic linker would save the registers on the stack, and with them
# what they still contain of a password.
target_link_options(project_settings INTERFACE -Wl,-z,now)

# The same program from any folder: debug information and macros name files relative to the tree. Coverage data keeps
# the real paths, where its tools look for the sources.
target_compile_options(project_settings INTERFACE
  "-fdebug-prefix-map=${PROJECT_SOURCE_DIR}=." "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}=."
  "-fdebug-prefix-map=${PROJECT_BINARY_DIR}=build" "-fmacro-prefix-map=${PROJECT_BINARY_DIR}=build")
