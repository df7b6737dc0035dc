# STHAL_SANITIZE is a list as -fsanitize takes it: "address,undefined" or "thread".
set(STHAL_SANITIZE "" CACHE STRING "Sanitizers to build everything with")
if(STHAL_SANITIZE)
    add_compile_options(-fsanitize=${STHAL_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    # This check opens descriptors of its own, and fails where a test has taken them all away.
    if(STHAL_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize=vptr)
    endif()
    if(STHAL_SANITIZE MATCHES "thread")
        add_compile_definitions(STHAL_THREAD_SANITIZER)
    endif()
    add_link_options(-fsanitize=${STHAL_SANITIZE})
endif()
