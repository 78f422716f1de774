# Parts of the library that stand in files of their own because of what they are built on. The
# library loads them when it needs them; nothing links them. Each is called ZAVAudioStreamingNAME and
# has one symbol to be seen from outside, whose name holds the version: another one's stays out.
string(REPLACE . _ zav_module_version ${PROJECT_VERSION})
set(zav_module_exports ${CMAKE_CURRENT_LIST_DIR}/module-exports.map)

# The source in the library that loads the module gets its names as ZAV_NAME_MODULE_FILE and
# ZAV_NAME_MODULE_ENTRY.
function(zav_module_names name source)
  string(TOUPPER ${name} upper)
  set(file ${CMAKE_SHARED_MODULE_PREFIX}ZAVAudioStreaming${name}${CMAKE_SHARED_MODULE_SUFFIX})
  set_source_files_properties(${source} PROPERTIES COMPILE_DEFINITIONS
    "ZAV_${upper}_MODULE_FILE=\"${file}\";ZAV_${upper}_MODULE_ENTRY=\"ZAVAudioStreaming${name}_${zav_module_version}\"")
endfunction()

# A module from its sources; they know the symbol that they have to define as ZAV_MODULE_SYMBOL.
function(zav_add_module target name)
  add_library(${target} MODULE ${ARGN})
  target_compile_features(${target} PRIVATE cxx_std_20)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_definitions(${target} PRIVATE
    ZAV_MODULE_SYMBOL=ZAVAudioStreaming${name}_${zav_module_version})
  target_link_libraries(${target} PRIVATE zav_build_options)
  # What the module has in common with the library is its own copy.
  target_link_options(${target} PRIVATE -Wl,--version-script=${zav_module_exports})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ZAVAudioStreaming${name} CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:zav_shared>
    LINK_DEPENDS ${zav_module_exports})
  if(NOT ZAV_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
  if(ZAV_INSTALL)
    # Beside the library, where that looks for it.
    install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  endif()
endfunction()
