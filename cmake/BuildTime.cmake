# What keeps a build short; a build without any of it makes the same programs.

# Several sources of a target are compiled as one (CMAKE_UNITY_BUILD, which the presets set), since the
# headers are most of what there is to compile. A source includes what it uses all the same: the lock
# analysis compiles its sources one at a time, as a phone's build does.
set(CMAKE_UNITY_BUILD_BATCH_SIZE 6)

# sthal_unite_with_log_tags(TARGET): each source of this target has a log tag of its own.
function(sthal_unite_with_log_tags TARGET)
    set_target_properties(${TARGET} PROPERTIES UNITY_BUILD_CODE_AFTER_INCLUDE "#undef LOG_TAG")
endfunction()

# sthal_optimise(): the speed of what this folder builds matters, so it gets -O2 also where a preset is
# content with less. Not where nothing is measured: sanitizers and the lock analysis.
function(sthal_optimise)
    if(NOT STHAL_SANITIZE AND NOT STHAL_LOCK_ANALYSIS)
        add_compile_options($<$<CONFIG:RelWithDebInfo>:-O2>)
    endif()
endfunction()
