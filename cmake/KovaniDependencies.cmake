# The header-only libraries of the tool and its tests, CLI11 and
# nlohmann/json, as the targets CLI11::CLI11 and nlohmann_json::nlohmann_json.
# A cross build takes only their own directories from the build machine's
# /usr/include: the rest of it belongs to the build machine's C library.
function(kovani_header_only_dependencies)
  if(NOT CMAKE_CROSSCOMPILING)
    find_package(CLI11 REQUIRED GLOBAL)
    find_package(nlohmann_json REQUIRED GLOBAL)
    return()
  endif()
  set(dir ${PROJECT_BINARY_DIR}/header-only)
  foreach(entry IN ITEMS "CLI11::CLI11=CLI" "nlohmann_json::nlohmann_json=nlohmann")
    string(REPLACE "=" ";" parts "${entry}")
    list(GET parts 0 target)
    list(GET parts 1 subdir)
    if(NOT EXISTS /usr/include/${subdir})
      message(FATAL_ERROR "/usr/include/${subdir} is missing: install libcli11-dev and nlohmann-json3-dev")
    endif()
    file(MAKE_DIRECTORY ${dir})
    file(CREATE_LINK /usr/include/${subdir} ${dir}/${subdir} SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${dir})
  endforeach()
endfunction()
