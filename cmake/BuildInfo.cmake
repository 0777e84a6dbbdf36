# What the version banner says about this build, asked for when the build is
# configured: again after a commit or a checkout, or the banner would name the one
# before. Outside a git work tree the commit is all zeros.
function(velmor_git result fallback)
  set(${result} ${fallback} PARENT_SCOPE)
  find_package(Git QUIET)
  # A copy of the sources inside somebody else's work tree is none of its commits.
  if(NOT GIT_FOUND OR NOT EXISTS ${PROJECT_SOURCE_DIR}/.git)
    return()
  endif()
  execute_process(COMMAND ${GIT_EXECUTABLE} ${ARGN}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    OUTPUT_VARIABLE output ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE failed)
  if(NOT failed AND output)
    string(REPLACE "\"" "\\\"" output "${output}")
    set(${result} "${output}" PARENT_SCOPE)
  endif()
endfunction()

# velmor_build_info(template header) fills in the template.
function(velmor_build_info template header)
  velmor_git(VELMOR_BUILD_COMMIT 0000000000000000000000000000000000000000 rev-parse HEAD)
  velmor_git(VELMOR_BUILD_BRANCH unknown rev-parse --abbrev-ref HEAD)
  velmor_git(VELMOR_BUILD_NUMBER 0 rev-list --count HEAD)
  velmor_git(moves "" rev-parse --git-path logs/HEAD)
  if(moves)
    get_filename_component(moves ${moves} ABSOLUTE BASE_DIR ${PROJECT_SOURCE_DIR})
    if(EXISTS ${moves})
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${moves})
    endif()
  endif()
  string(TIMESTAMP VELMOR_BUILD_DATE "%a %Y-%m-%d %Y%m%d%H%M" UTC)
  configure_file(${template} ${header} @ONLY)
endfunction()
