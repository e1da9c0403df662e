# Warnings are errors in our own targets only; generated and third-party code keeps its own rules.
function(orvel_set_warnings target)
    if(MSVC)
        target_compile_options(${target} PRIVATE /W4 /WX)
    else()
        target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror -Wnon-virtual-dtor
            $<$<COMPILE_LANGUAGE:CXX>:-Wno-error=deprecated-declarations>)
    endif()
endfunction()
