# Every third-party library the project links, found the way Debian ships it.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

find_package(spdlog CONFIG REQUIRED)        # spdlog::spdlog (brings fmt::fmt)
find_package(cJSON CONFIG REQUIRED)         # target cjson, include <cjson/cJSON.h>
pkg_check_modules(LIBCONFIG REQUIRED IMPORTED_TARGET libconfig)
pkg_check_modules(LIBCONFIGXX REQUIRED IMPORTED_TARGET libconfig++)

# mbedTLS ships neither a .pc nor a CMake package on Debian 12.
find_path(MBEDTLS_INCLUDE_DIR mbedtls/md5.h REQUIRED)
find_library(MBEDCRYPTO_LIBRARY mbedcrypto REQUIRED)
add_library(v2x_mbedcrypto INTERFACE)
target_include_directories(v2x_mbedcrypto SYSTEM INTERFACE ${MBEDTLS_INCLUDE_DIR})
target_link_libraries(v2x_mbedcrypto INTERFACE ${MBEDCRYPTO_LIBRARY})

find_package(CycloneDDS 0.10 CONFIG REQUIRED)  # CycloneDDS::ddsc, idlc_generate()

if(V2X_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(V2X_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
