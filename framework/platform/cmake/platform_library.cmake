# Shared settings of the platform libraries: a versioned shared object that
# exports only what its header marks, with one public header installed beside it.
function(jaxel_platform_library name header)
  add_library(${name} SHARED ${ARGN})
  add_library(Jaxel::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PRIVATE jaxel_warnings)
  target_compile_definitions(${name} PRIVATE _POSIX_C_SOURCE=200809L _FILE_OFFSET_BITS=64)
  target_link_options(${name} PRIVATE -Wl,--no-undefined)
  set_target_properties(${name} PROPERTIES
    VERSION 0.1.0
    SOVERSION 0
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  if(JAXEL_INSTALL_PLATFORM)
    install(TARGETS ${name} EXPORT JaxelTargets
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
      RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/include/${header}
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  endif()
endfunction()
