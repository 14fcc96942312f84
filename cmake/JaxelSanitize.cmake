# Builds everything with the sanitizers named in JAXEL_SANITIZE, e.g.
# "address,undefined" or "thread". A finding stops the program with an error.
# Included by the project (or through CMAKE_PROJECT_INCLUDE) before any target.
include_guard(GLOBAL)

set(JAXEL_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")

if(JAXEL_SANITIZE)
  if(JAXEL_SANITIZE MATCHES "thread" AND JAXEL_SANITIZE MATCHES "address")
    message(FATAL_ERROR "JAXEL_SANITIZE: thread cannot be combined with address")
  endif()
  # vptr needs RTTI, which the library is built without.
  add_compile_options(-fsanitize=${JAXEL_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  if(JAXEL_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize=vptr)
  endif()
  add_link_options(-fsanitize=${JAXEL_SANITIZE})
endif()
