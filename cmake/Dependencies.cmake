# Every library that is not ours. `./dev` installs the packages.
find_package(Threads REQUIRED)

# The block code, from its source, which `./dev` fetches into an archive: built here, it is the same
# on both systems, and silent. Without the archive Debian's library does natively, which tells the
# terminal that it has been initialised. The headers say nothing sensible without the instruction
# set's define.
add_library(vd_block_code INTERFACE)
target_compile_options(vd_block_code INTERFACE -mssse3)
target_compile_definitions(vd_block_code INTERFACE USE_SSSE3)
if(VD_CM256_ARCHIVE)
  include(FetchContent)
  FetchContent_Declare(cm256cc
    URL ${VD_CM256_ARCHIVE}
    URL_HASH SHA256=2f4a1998b1b56c7feabcc66f24495c31fe900412b9140c60e81501ad8201e9bc
    SOURCE_SUBDIR none DOWNLOAD_EXTRACT_TIMESTAMP TRUE)
  FetchContent_MakeAvailable(cm256cc)
  add_library(cm256cc_static STATIC ${cm256cc_SOURCE_DIR}/cm256.cpp ${cm256cc_SOURCE_DIR}/gf256.cpp)
  target_compile_options(cm256cc_static PUBLIC -mssse3)
  # Its inner loops do sixteen bytes a turn: unrolled they are a seventh faster, without asking for
  # newer instructions.
  target_compile_options(cm256cc_static PRIVATE -O3 -funroll-loops)
  target_compile_definitions(cm256cc_static PUBLIC USE_SSSE3 cm256cc_STATIC)
  # It has no switch for what it prints: its calls of fprintf are compiled out.
  file(WRITE ${CMAKE_BINARY_DIR}/deps/silent_stdio.h
       "#include <stdio.h>\n#define fprintf(...) ((void)0)\n")
  target_compile_options(cm256cc_static PRIVATE -include ${CMAKE_BINARY_DIR}/deps/silent_stdio.h)
  if(VD_SANITIZE) # somebody else's code
    target_compile_options(cm256cc_static PRIVATE -fno-sanitize=all)
  endif()
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/deps/include)
  file(GLOB cm256cc_headers ${cm256cc_SOURCE_DIR}/*.h)
  file(COPY ${cm256cc_headers} DESTINATION ${CMAKE_BINARY_DIR}/deps/include/cm256cc)
  target_link_libraries(vd_block_code INTERFACE cm256cc_static)
  target_include_directories(vd_block_code SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/deps/include)
elseif(WIN32)
  message(FATAL_ERROR "The block code's source is missing: run ./dev, which fetches it")
else()
  find_path(CM256CC_INCLUDE cm256cc/cm256.h REQUIRED)
  find_library(CM256CC_LIBRARY cm256cc REQUIRED)
  target_include_directories(vd_block_code SYSTEM INTERFACE ${CM256CC_INCLUDE})
  target_link_libraries(vd_block_code INTERFACE ${CM256CC_LIBRARY})
endif()

# The module's encoders, on Linux those of libavcodec; containers, scaling and sound besides for the
# tools.
set(VD_ENCODER_LIBS)
set(VD_MEDIA_LIBS)
set(VD_RESPONDER_LIBS)
set(VD_WEB_LIBS)
set(VD_WINDOW_LIBS)
if(WIN32)
  # Identifiers, and what every Windows has: the media layer and Direct3D are loaded at run time.
  set(VD_ENCODER_LIBS mfuuid strmiids dxguid uuid ole32 oleaut32)
else()
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(AVCODEC REQUIRED IMPORTED_TARGET libavcodec libavutil)
  pkg_check_modules(AVMEDIA REQUIRED IMPORTED_TARGET libavcodec libavformat libavutil libswscale
                    libswresample)
  # The DNS-SD responder; Windows has one of its own.
  pkg_check_modules(AVAHI REQUIRED IMPORTED_TARGET avahi-core)
  # The receiver's small server for browsers.
  pkg_check_modules(MICROHTTPD REQUIRED IMPORTED_TARGET libmicrohttpd)
  # The receiver's window.
  pkg_check_modules(SDL REQUIRED IMPORTED_TARGET sdl2 SDL2_gfx)
  set(VD_ENCODER_LIBS PkgConfig::AVCODEC)
  set(VD_MEDIA_LIBS PkgConfig::AVMEDIA)
  set(VD_RESPONDER_LIBS PkgConfig::AVAHI)
  set(VD_WEB_LIBS PkgConfig::MICROHTTPD)
  set(VD_WINDOW_LIBS PkgConfig::SDL)
endif()

# GoogleTest: the distribution's build natively, its source where it has to be compiled for the
# target or the sanitizer.
if(WIN32 OR VD_SANITIZE)
  set(INSTALL_GTEST OFF)
  set(gtest_force_shared_crt ON)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/deps/googletest EXCLUDE_FROM_ALL)
  add_library(vd_gtest INTERFACE)
  target_link_libraries(vd_gtest INTERFACE GTest::gmock GTest::gtest)
else()
  find_package(GTest REQUIRED)
  add_library(vd_gtest INTERFACE)
  target_link_libraries(vd_gtest INTERFACE GTest::gmock GTest::gtest)
endif()

# Reads the QR codes that the tests look at.
if(NOT WIN32 AND NOT VD_FUZZ)
  pkg_check_modules(ZBAR REQUIRED IMPORTED_TARGET zbar)
endif()

# Header-only libraries of the tools and tests, copied aside so that a cross-compiler doesn't see
# the rest of the system's headers.
add_library(vd_tool_headers INTERFACE)
foreach(package CLI nlohmann)
  if(NOT EXISTS /usr/include/${package})
    message(FATAL_ERROR "The headers of ${package} are missing: run ./dev, which installs them")
  endif()
  file(COPY /usr/include/${package} DESTINATION ${CMAKE_BINARY_DIR}/deps/tool-include)
endforeach()
target_include_directories(vd_tool_headers SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/deps/tool-include)

if(VD_BENCH)
  find_package(benchmark REQUIRED)
endif()
