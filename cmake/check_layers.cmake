# Fails the build when a source file includes a header of a layer it may not use.
# Run as: cmake -DSOURCE_DIR=<repository root> -P cmake/check_layers.cmake
#
# The layers and what each may include besides itself (an arrow points down only):
#   util    -> nothing               board   -> util
#   eval    -> board, util           movegen -> board, eval, util
#   search  -> board, movegen, eval, util (and the tablebase prober, from tablebase.cpp only)
#   threads -> search and below      tuning  -> board, eval, movegen, util
#   uci     -> everything            fathom  -> nothing of the engine
set(allowed_util "")
set(allowed_board "util")
set(allowed_eval "board;util")
set(allowed_movegen "board;eval;util")
set(allowed_search "board;movegen;eval;util")
set(allowed_threads "search;board;movegen;eval;util")
set(allowed_tuning "board;eval;movegen;util")
set(allowed_uci "threads;search;board;movegen;eval;util;tuning")
set(allowed_fathom "")

function(layer_of path result)
  if(path MATCHES "^engine/([a-z]+)/")
    set(${result} "${CMAKE_MATCH_1}" PARENT_SCOPE)
  elseif(path MATCHES "^(fathom|tuning)/")
    set(${result} "${CMAKE_MATCH_1}" PARENT_SCOPE)
  else()
    set(${result} "" PARENT_SCOPE)
  endif()
endfunction()

file(GLOB_RECURSE sources RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/engine/*.cpp" "${SOURCE_DIR}/engine/*.h"
     "${SOURCE_DIR}/fathom/*.cpp" "${SOURCE_DIR}/fathom/*.h" "${SOURCE_DIR}/tuning/*.cpp" "${SOURCE_DIR}/tuning/*.h")
set(violations "")
foreach(source ${sources})
  layer_of("${source}" from)
  file(STRINGS "${SOURCE_DIR}/${source}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  foreach(line ${includes})
    string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]+)\".*" "\\1" header "${line}")
    layer_of("${header}" to)
    if(to STREQUAL "" OR to STREQUAL from)
      continue()
    endif()
    if(source STREQUAL "engine/search/tablebase.cpp" AND to STREQUAL "fathom")
      continue()
    endif()
    list(FIND allowed_${from} "${to}" found)
    if(found EQUAL -1)
      list(APPEND violations "${source} includes ${header} (${from} may not use ${to})")
    endif()
  endforeach()
endforeach()
if(violations)
  list(JOIN violations "\n  " text)
  message(FATAL_ERROR "Layer violations:\n  ${text}")
endif()
