# The version lives once, in project(); jaxel.h spells it out for C callers and
# must agree, or the configure stops here.
function(jaxel_check_header_version header)
  file(STRINGS ${header} lines REGEX "^#define JAXEL_VERSION_")
  set(expected
      "#define JAXEL_VERSION_MAJOR ${PROJECT_VERSION_MAJOR}"
      "#define JAXEL_VERSION_MINOR ${PROJECT_VERSION_MINOR}"
      "#define JAXEL_VERSION_PATCH ${PROJECT_VERSION_PATCH}"
      "#define JAXEL_VERSION_STRING \"${PROJECT_VERSION}\"")
  if(NOT lines STREQUAL expected)
    string(REPLACE ";" "\n  " want "${expected}")
    message(FATAL_ERROR "${header} must carry the project version ${PROJECT_VERSION}:\n  ${want}")
  endif()
endfunction()
