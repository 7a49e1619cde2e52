# SPDX-License-Identifier: MIT
#
# kestrova_together(variable name source...): groups the sources of tests, which the compiler reads
# several at once, because most of its work on a test repeats its work on the next one. Each source
# is in a namespace of its own, so that two sources can use one name; the headers are read first.
# A source is compiled alone if it has a macro, a condition, a symbol of C, a named namespace, an
# operator new, or the line "// Compiled alone".
set(KESTROVA_TOGETHER 8 CACHE STRING "How many sources of tests are compiled as one; 1: each alone")

# kestrova_write_together(output include-line...): reads the variable bodies of its caller.
function(kestrova_write_together output)
  list(REMOVE_DUPLICATES ARGN)
  list(JOIN ARGN "\n" includes)
  file(CONFIGURE OUTPUT ${output} CONTENT "${includes}\n${bodies}" @ONLY)
  # gcc warns of a base in an unnamed namespace of a file that it takes for a header.
  set_source_files_properties(${output} PROPERTIES COMPILE_OPTIONS -Wno-subobject-linkage)
endfunction()

function(kestrova_together variable name)
  set(alone [[^[ ]*#[ ]*(define|undef|if)|extern "C"|^namespace [a-z]|operator (new|delete)|^// Compiled alone]])
  set(result)
  set(together)
  foreach(source IN LISTS ARGN)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    file(STRINGS ${source} special REGEX "${alone}" LIMIT_COUNT 1)
    if(special OR KESTROVA_TOGETHER LESS 2)
      list(APPEND result ${source})
    else()
      list(APPEND together ${source})
    endif()
  endforeach()

  set(batch 0)
  while(together)
    list(SUBLIST together 0 ${KESTROVA_TOGETHER} sources)
    list(REMOVE_ITEM together ${sources})
    set(includes)
    set(bodies "")
    foreach(source IN LISTS sources)
      file(STRINGS ${source} lines REGEX "^#include ")
      list(APPEND includes ${lines})
      file(RELATIVE_PATH scope ${CMAKE_CURRENT_SOURCE_DIR} ${source})
      string(MAKE_C_IDENTIFIER "${scope}" scope)
      string(APPEND bodies "namespace ${scope} {\n#include \"${source}\"\n}\n")
    endforeach()
    set(output ${CMAKE_CURRENT_BINARY_DIR}/${name}-${batch}.cpp)
    kestrova_write_together(${output} ${includes})
    list(APPEND result ${output})
    math(EXPR batch "${batch} + 1")
  endwhile()
  set(${variable} ${result} PARENT_SCOPE)
endfunction()
