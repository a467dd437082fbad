# Generates C code from ASN.1 modules with asn1c at configure time and builds it
# as a static library.
#
#   v2x_asn1_library(<target> FILES <a.asn>... [FLAGS <asn1c flags>...])
#
# The code lands in ${CMAKE_CURRENT_BINARY_DIR}/<target>-gen and is regenerated
# only when the modules, the flags, the asn1c binary or this file change (a hash
# kept next to the output decides). Editing a module re-runs configure.
#
# Generated descriptors are patched for one asn1c 0.9.28 fault: on every
# encode, decode, print or free, the generated "inherit" functions overwrite
# the descriptor's constraint checker with the base type's (usually a no-op),
# after which asn_check_constraints() accepts any value. The overwriting lines
# are removed; the constraint functions that used the same assignment to hand
# over to the base checker call it directly instead.

find_program(ASN1C_EXECUTABLE asn1c REQUIRED)

function(v2x_asn1_library target)
  cmake_parse_arguments(A "" "" "FILES;FLAGS" ${ARGN})
  if(NOT A_FILES)
    message(FATAL_ERROR "v2x_asn1_library(${target}): no FILES")
  endif()
  list(SORT A_FILES)
  set(gen_dir ${CMAKE_CURRENT_BINARY_DIR}/${target}-gen)
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/${target}-gen.hash)

  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${A_FILES} ${CMAKE_CURRENT_FUNCTION_LIST_FILE})

  # Everything that can change the output goes into the hash.
  file(SHA256 ${ASN1C_EXECUTABLE} tool_hash)
  file(SHA256 ${CMAKE_CURRENT_FUNCTION_LIST_FILE} self_hash)
  set(hash_input "${A_FLAGS}|${tool_hash}|${self_hash}")
  foreach(f ${A_FILES})
    file(SHA256 ${f} h)
    string(APPEND hash_input "|${f}:${h}")
  endforeach()
  string(SHA256 hash "${hash_input}")

  set(old_hash "")
  if(EXISTS ${stamp})
    file(READ ${stamp} old_hash)
  endif()

  if(NOT old_hash STREQUAL hash OR NOT EXISTS ${gen_dir})
    message(STATUS "asn1c: generating ${target} from ${A_FILES}")
    file(REMOVE ${stamp})
    file(REMOVE_RECURSE ${gen_dir})
    file(MAKE_DIRECTORY ${gen_dir})
    execute_process(
      COMMAND ${ASN1C_EXECUTABLE} ${A_FLAGS} ${A_FILES}
      WORKING_DIRECTORY ${gen_dir}
      RESULT_VARIABLE rc
      OUTPUT_VARIABLE out
      ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
      message(FATAL_ERROR "asn1c failed (${rc}):\n${err}")
    endif()

    file(GLOB gen_c ${gen_dir}/*.c)
    set(patched 0)
    foreach(c ${gen_c})
      file(READ ${c} text)
      set(orig "${text}")
      # Constraint functions that delegate to the base type: call it directly.
      string(REGEX REPLACE
        "\ttd->check_constraints = (asn_DEF_[A-Za-z0-9_]+)\\.check_constraints;\n\treturn td->check_constraints\\(td, sptr, ctfailcb, app_key\\);"
        "\treturn \\1.check_constraints(td, sptr, ctfailcb, app_key);" text "${text}")
      # Inherit functions: keep the type's own checker.
      string(REGEX REPLACE "\n\ttd->check_constraints = asn_DEF_[A-Za-z0-9_]+\\.check_constraints;" "" text "${text}")
      if(text MATCHES "td->check_constraints = ")
        message(FATAL_ERROR "asn1c output ${c}: unexpected constraint checker assignment left after patching")
      endif()
      if(NOT text STREQUAL orig)
        file(WRITE ${c} "${text}")
        math(EXPR patched "${patched} + 1")
      endif()
    endforeach()
    message(STATUS "asn1c: patched the constraint checker hand-over in ${patched} files")
    file(WRITE ${stamp} "${hash}")
  endif()

  file(GLOB sources ${gen_dir}/*.c)
  list(FILTER sources EXCLUDE REGEX "/(converter-sample|pdu_collection)\\.c$")
  add_library(${target} STATIC ${sources})
  target_include_directories(${target} SYSTEM PUBLIC ${gen_dir})
  target_compile_definitions(${target} PUBLIC _DEFAULT_SOURCE)
  target_compile_options(${target} PRIVATE -w)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()
