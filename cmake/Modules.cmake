# Parts of the library that stand in files of their own because of what they are built on. The
# library loads them when it needs them; nothing links them. The file is called
# ZAVAudioStreamingMODULE, and exports one symbol for each of its tables,
# ZAVAudioStreamingMODULETABLE_VERSION: a module of another version has none that is looked for.
string(REPLACE . _ zav_module_version ${PROJECT_VERSION})
set(zav_module_exports ${CMAKE_CURRENT_LIST_DIR}/module-exports.map)

# The source that loads modules puts their names together.
function(zav_name_modules source)
  set_source_files_properties(${source} PROPERTIES COMPILE_DEFINITIONS
    "ZAV_MODULE_PREFIX=\"${CMAKE_SHARED_MODULE_PREFIX}\";ZAV_MODULE_SUFFIX=\"${CMAKE_SHARED_MODULE_SUFFIX}\";ZAV_MODULE_VERSION=\"${zav_module_version}\"")
endfunction()

# A module from its sources, which define the symbol of each table as ZAV_TABLE_TABLE.
function(zav_add_module target name)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "TABLES;SOURCES")
  add_library(${target} MODULE ${arg_SOURCES})
  target_compile_features(${target} PRIVATE cxx_std_20)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  foreach(table ${arg_TABLES})
    string(TOUPPER ${table} upper)
    target_compile_definitions(${target} PRIVATE
      ZAV_${upper}_TABLE=ZAVAudioStreaming${name}${table}_${zav_module_version})
  endforeach()
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
