# Checks of the build's shape, run by CTest beside the unit tests (label "checks"): each takes a
# fraction of a second.
find_package(Python3 COMPONENTS Interpreter)
if(Python3_Interpreter_FOUND)
  add_test(NAME rkv_check_layers
    COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/scripts/check-layers.py")
  add_test(NAME rkv_check_export_marks
    COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/scripts/annotate-exports.py" --check)
  set_tests_properties(rkv_check_layers rkv_check_export_marks PROPERTIES LABELS checks)
endif()

# The shared library exports its public API and nothing of rkv::internal.
get_target_property(_rkv_core_type RKVCoreKit TYPE)
if(_rkv_core_type STREQUAL "SHARED_LIBRARY")
  add_test(NAME rkv_check_exports
    COMMAND "${PROJECT_SOURCE_DIR}/scripts/check-exports.sh" "$<TARGET_FILE:RKVCoreKit>")
  set_tests_properties(rkv_check_exports PROPERTIES LABELS checks)
endif()
