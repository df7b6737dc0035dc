# Every target is clean with these, under GCC and clang. ./dev makes them errors
# (CMAKE_COMPILE_WARNING_AS_ERROR); a newer compiler's new warnings stop nobody else.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The lock annotations are clang's; GCC only notes that it does not know them.
    add_compile_options(-Wno-attributes)
    # What -O3 inlines of std::string, std::optional and std::variant, GCC 12 takes for overlapping or
    # endless copies (its bug 105651) and for members that nobody has set.
    foreach(false_alarm restrict maybe-uninitialized stringop-overflow)
        add_compile_options($<$<CONFIG:Release>:-Wno-${false_alarm}>)
    endforeach()
elseif(CMAKE_CXX_FLAGS MATCHES "-stdlib=libc\\+\\+")
    # libc++ annotates std::mutex and std::lock_guard, so clang can check GUARDED_BY and REQUIRES.
    # -beta: the order of locks, too.
    add_compile_options(-Wthread-safety -Wthread-safety-beta)
    add_compile_definitions(_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS)
else()
    # libstdc++ does not annotate them: here the attributes would only complain of that.
    add_compile_options(-Wthread-safety -Wno-thread-safety-attributes -Wno-thread-safety-analysis)
endif()
