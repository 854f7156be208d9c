# The parts of the page of `tev-host plot`, as bytes in the program: TEV_PAGE_FILES is the source file
# with them. The plotting library uPlot comes from npm, once per build folder, or from a folder.

set(TEV_UPLOT_DIR "" CACHE PATH
  "Folder of the uPlot package, for tev-host plot (default: npm fetches it into the build folder)")
set(page ${CMAKE_CURRENT_LIST_DIR})

# Fetches the package unless the build folder has it already, in the version of the lock file.
function(tev_fetch_uplot folder)
  file(SHA256 ${page}/package-lock.json lock)
  set(stamp ${folder}/fetched)
  if(EXISTS ${stamp})
    file(READ ${stamp} fetched)
    if(fetched STREQUAL lock)
      return()
    endif()
  endif()
  find_program(TEV_NPM npm)
  if(NOT TEV_NPM)
    message(STATUS "npm was not found: tev-host plot is left out (or give -DTEV_UPLOT_DIR)")
    return()
  endif()
  file(COPY ${page}/package.json ${page}/package-lock.json DESTINATION ${folder})
  execute_process(
    COMMAND ${TEV_NPM} ci --ignore-scripts --no-audit --no-fund --prefer-offline --fetch-retries=1
      --fetch-retry-mintimeout=1000 --fetch-timeout=20000
    WORKING_DIRECTORY ${folder} TIMEOUT 60
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(result EQUAL 0)
    file(WRITE ${stamp} ${lock})
  else()
    message(STATUS "npm could not fetch uPlot: tev-host plot is left out (or give -DTEV_UPLOT_DIR)\n${output}")
  endif()
endfunction()

set(uplot "${TEV_UPLOT_DIR}")
if(NOT uplot)
  tev_fetch_uplot(${PROJECT_BINARY_DIR}/uplot)
  set(uplot ${PROJECT_BINARY_DIR}/uplot/node_modules/uplot)
endif()
set(uplot_files ${uplot}/dist/uPlot.min.css ${uplot}/dist/uPlot.iife.min.js ${uplot}/LICENSE)
set(TEV_HAS_PLOT ON CACHE INTERNAL "Whether tev-host plot is part of the build")
foreach(file ${uplot_files})
  if(NOT EXISTS ${file})
    set(TEV_HAS_PLOT OFF CACHE INTERNAL "")
  endif()
endforeach()
if(TEV_UPLOT_DIR AND NOT TEV_HAS_PLOT)
  message(FATAL_ERROR "TEV_UPLOT_DIR=${TEV_UPLOT_DIR} does not have ${uplot_files}")
endif()

set(TEV_PAGE_FILES ${CMAKE_CURRENT_BINARY_DIR}/page_files.cpp)
# The scripts of the page are one script in this order.
set(page_scripts "")
foreach(script format theme data marks chart timeline overview tables page)
  list(APPEND page_scripts ${page}/${script}.js)
endforeach()
set(page_sources ${page}/page.html ${page}/page.css)
if(TEV_HAS_PLOT)
  list(APPEND page_sources ${uplot_files})
endif()
add_custom_command(OUTPUT ${TEV_PAGE_FILES}
  COMMAND ${CMAKE_COMMAND} "-Dsources=${page_sources}" "-Dscripts=${page_scripts}" -Dresult=${TEV_PAGE_FILES} -P ${page}/embed.cmake
  DEPENDS ${page_sources} ${page_scripts} ${page}/embed.cmake VERBATIM)
