# The one shared library, made of the layers' objects.
get_property(kv_layers GLOBAL PROPERTY KV_LAYERS)
add_library(kvinventory SHARED)
add_library(KvInventory::kvinventory ALIAS kvinventory)
target_link_libraries(kvinventory PRIVATE ${kv_layers})
target_include_directories(kvinventory INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/korvel>)
target_compile_features(kvinventory INTERFACE cxx_std_20)
set_target_properties(kvinventory PROPERTIES LINKER_LANGUAGE CXX VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
