# STHAL_SANITIZE is a list as -fsanitize takes it: "address,undefined" or "thread".
set(STHAL_SANITIZE "" CACHE STRING "Sanitizers to build everything with")
if(STHAL_SANITIZE)
    add_compile_options(-fsanitize=${STHAL_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${STHAL_SANITIZE})
endif()
