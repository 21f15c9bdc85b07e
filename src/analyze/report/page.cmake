# Makes page_parts.cpp from page/ and the JavaScript libraries of the distribution.

set(BOOTFORGE_JAVASCRIPT /usr/share/nodejs CACHE PATH
    "Folder with the JavaScript libraries of the report's page")
set(page_folder ${CMAKE_CURRENT_LIST_DIR}/page)
set(page_build ${CMAKE_BINARY_DIR}/report)

# What goes into the page, as "module=package"; licences.txt holds their licences.
set(page_libraries dagre=node-dagre-layout graphlib=node-graphlibrary lodash=node-lodash)
foreach(module color dispatch drag ease interpolate selection timer transition zoom)
  list(APPEND page_libraries d3-${module}=node-d3-${module})
endforeach()

set(page_missing "")
find_program(ESBUILD esbuild)
if(NOT ESBUILD)
  list(APPEND page_missing esbuild)
endif()
set(page_list "")
foreach(library ${page_libraries})
  string(REPLACE "=" ";" library ${library})
  list(GET library 0 module)
  find_file(JAVASCRIPT_${module} ${module}/package.json PATHS ${BOOTFORGE_JAVASCRIPT}
            NO_DEFAULT_PATH)
  if(NOT JAVASCRIPT_${module})
    list(GET library 1 package)
    list(APPEND page_missing ${package})
    continue()
  endif()
  file(READ ${JAVASCRIPT_${module}} package)
  string(JSON version GET "${package}" version)
  string(JSON license GET "${package}" license)
  list(APPEND page_list
    "{\"name\": \"${module}\", \"version\": \"${version}\", \"license\": \"${license}\"}")
endforeach()
if(page_missing)
  list(JOIN page_missing " " page_missing)
  message(FATAL_ERROR "The page of bootforge-analyze report cannot be built without these packages: "
    "${page_missing}. scripts/bootstrap installs them.")
endif()
list(JOIN page_list ",\n" page_list)
file(CONFIGURE OUTPUT ${page_build}/libraries.json CONTENT "[@page_list@]\n" @ONLY)

file(GLOB page_sources CONFIGURE_DEPENDS ${page_folder}/*)
add_custom_command(
  OUTPUT ${page_build}/page.js ${page_build}/page.css
  COMMAND ${CMAKE_COMMAND} -E env NODE_PATH=${BOOTFORGE_JAVASCRIPT} ${ESBUILD}
          ${page_folder}/main.js --bundle --minify --format=iife --target=es2022 --charset=utf8 --legal-comments=none
          --alias:libraries.json=${page_build}/libraries.json --loader:.txt=text
          --metafile=${page_build}/contents.json --outfile=${page_build}/page.js --log-level=warning
  COMMAND ${ESBUILD} ${page_folder}/page.css --minify --outfile=${page_build}/page.css
          --log-level=warning
  DEPENDS ${page_sources} ${page_build}/libraries.json
  COMMENT "Bundling the page of bootforge-analyze report"
  VERBATIM)
add_custom_command(
  OUTPUT ${page_build}/page_parts.cpp
  COMMAND ${CMAKE_COMMAND} -DOUTPUT=${page_build}/page_parts.cpp
          -DFRAME=${page_folder}/page.html -DSTYLE=${page_build}/page.css
          -DPROGRAM=${page_build}/page.js -P ${CMAKE_CURRENT_LIST_DIR}/embed_page.cmake
  DEPENDS ${page_build}/page.js ${page_build}/page.css ${page_folder}/page.html
          ${CMAKE_CURRENT_LIST_DIR}/embed_page.cmake
  VERBATIM)
set(page_parts ${page_build}/page_parts.cpp)
