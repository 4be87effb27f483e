# What a program holds of the libraries that it needs (docs/adr/0005).
#
# A target with the property QO_STANDS_ALONE has our own libraries and the C++ runtime inside it; every other one has the
# shared ones. Whoever is linked into both kinds names NAME_linked.

# qo_add_platform_library(NAME SOURCE...): NAME, shared, and NAME_static, of what NAME_compiled compiles once. Their public
# headers are in inc.
function(qo_add_platform_library name)
    add_library(${name}_compiled OBJECT ${ARGN})
    target_include_directories(${name}_compiled PUBLIC inc)
    qo_target_options(${name}_compiled)
    add_library(${name} SHARED)
    add_library(${name}_static STATIC)
    set_target_properties(${name}_static PROPERTIES OUTPUT_NAME ${name})
    foreach(library ${name} ${name}_static)
        target_link_libraries(${library} PRIVATE ${name}_compiled)
        target_include_directories(${library} PUBLIC inc)
    endforeach()
    add_library(${name}_linked INTERFACE)
    target_link_libraries(${name}_linked
        INTERFACE $<IF:$<BOOL:$<TARGET_PROPERTY:QO_STANDS_ALONE>>,${name}_static,${name}>)
endfunction()

# qo_stand_alone(PROGRAM)
function(qo_stand_alone program)
    set_target_properties(${program} PROPERTIES QO_STANDS_ALONE ON)
    if(QO_SANITIZED)
        return()  # a sanitizer replaces functions of the C++ runtime, which it finds in a shared one only
    endif()
    # The runtime's symbols are nobody else's, so what nothing calls is left out.
    target_link_options(${program} PRIVATE
        -static-libstdc++ -Wl,--exclude-libs,libstdc++.a -Wl,--gc-sections -Wl,--as-needed)
    # What the runtime wants of the mathematical library, which would be loaded for it.
    set(functions fegetround fesetround)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
        list(APPEND functions floor)  # others have an instruction
    endif()
    list(TRANSFORM functions PREPEND -Wl,--undefined=)
    target_link_options(${program} PRIVATE ${functions})
    target_link_libraries(${program} PRIVATE -l:libm.a)
endfunction()
