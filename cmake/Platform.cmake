# The platform's own base and log libraries, as Debian packages them. Their headers are taken as
# system headers, and their folder is not on the loader's path, so it goes into the rpath.
find_package(Threads REQUIRED)
find_path(ANDROID_BASE_INCLUDE_DIR android-base/logging.h PATHS /usr/include/android REQUIRED)
find_library(ANDROID_BASE_LIBRARY base
             PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android REQUIRED NO_DEFAULT_PATH)
find_library(ANDROID_LOG_LIBRARY log
             PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android REQUIRED NO_DEFAULT_PATH)
get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_BASE_LIBRARY} DIRECTORY)

add_library(android_base INTERFACE)
target_include_directories(android_base SYSTEM INTERFACE ${ANDROID_BASE_INCLUDE_DIR})
# A result that nobody looks at is a mistake (host/common/result.h).
target_compile_definitions(android_base INTERFACE NODISCARD_EXPECTED)
target_link_libraries(android_base INTERFACE ${ANDROID_BASE_LIBRARY} ${ANDROID_LOG_LIBRARY}
                                             Threads::Threads)
list(APPEND CMAKE_BUILD_RPATH ${ANDROID_LIBRARY_DIR})
