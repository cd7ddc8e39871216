# The one shared library, made of the layers' objects, and what an installation holds.
include(CMakePackageConfigHelpers)

get_property(kv_layers GLOBAL PROPERTY KV_LAYERS)
add_library(kvinventory SHARED)
add_library(KvInventory::kvinventory ALIAS kvinventory)
target_link_libraries(kvinventory PRIVATE ${kv_layers})
target_include_directories(kvinventory INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/korvel>)
target_compile_features(kvinventory INTERFACE cxx_std_20)
set_target_properties(kvinventory PROPERTIES
  LINKER_LANGUAGE CXX VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
if(UNIX AND NOT APPLE)
  target_link_options(kvinventory PRIVATE
    LINKER:--version-script=${CMAKE_CURRENT_LIST_DIR}/kvinventory.map LINKER:-Bsymbolic-functions)
  set_target_properties(kvinventory PROPERTIES LINK_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/kvinventory.map)
endif()

install(TARGETS kvinventory EXPORT KvInventoryTargets)
install(EXPORT KvInventoryTargets NAMESPACE KvInventory:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KvInventory)

# The public headers and what they include; the installed tree mirrors the folders under include/korvel.
include(${CMAKE_CURRENT_LIST_DIR}/KvHeaders.cmake)
foreach(header IN LISTS KV_PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/korvel/${folder})
endforeach()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KvInventoryConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KvInventoryConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KvInventory)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KvInventoryConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KvInventoryConfig.cmake ${PROJECT_BINARY_DIR}/KvInventoryConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KvInventory)

file(RELATIVE_PATH KV_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kvinventory.pc.in ${PROJECT_BINARY_DIR}/kvinventory.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kvinventory.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
