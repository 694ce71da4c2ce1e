# Warnings for our own code, and the sanitizers for everything that is compiled here.
add_library(vd_warnings INTERFACE)
target_compile_options(vd_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion
                                             -Wnon-virtual-dtor -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(vd_warnings INTERFACE -Wthread-safety)
endif()
if(VD_WERROR)
  target_compile_options(vd_warnings INTERFACE -Werror)
endif()
if(VD_SANITIZE)
  add_compile_options(-fsanitize=${VD_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${VD_SANITIZE})
endif()
if(WIN32)
  add_link_options(-static)
endif()
