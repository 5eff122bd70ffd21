# The image decoder. Its version 2.27 takes any number of codes from a JPEG file and writes them past
# the end of its tables of 256; later versions refuse such a file. Where the coded data of a JPEG file end
# before the picture does, it goes on with zeros and says nothing. quillon_stb(OUT FILE...) makes a folder
# with the system's header, that check, and STBI_CODED_DATA_END_EARLY where such zeros were not only read
# ahead but used. Its sums of what a file says overflow, and are looked at only afterwards: in FILE...,
# which hold the decoder, they wrap. It copies nothing from and to null.
function(quillon_stb_replace before after)
  string(FIND "${text}" "${before}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "stb_image.h has no '${before}'")
  endif()
  string(REPLACE "${before}" "${after}" text "${text}")
  set(text "${text}" PARENT_SCOPE)
endfunction()

function(quillon_stb out)
  set(folder ${CMAKE_BINARY_DIR}/decoder)
  set(made ${folder}/stb/stb_image.h)
  file(READ /usr/include/stb/stb_image.h text)
  if(NOT text MATCHES "n > 256")
    set(counted "            L -= 17;\n            if (tc == 0) {")
    quillon_stb_replace("${counted}"
      "            if (n > 256) return stbi__err(\"bad DHT header\",\"Corrupt JPEG\");\n${counted}")
  endif()
  quillon_stb_replace("int restart_interval, todo;"
                      "int restart_interval, todo, zeros;")
  set(check "if (j->code_bits < 8 * j->zeros) STBI_CODED_DATA_END_EARLY;\n")
  quillon_stb_replace("   j->code_bits = 0;\n   j->code_buffer = 0;\n   j->nomore = 0;\n"
                      "   ${check}   j->code_bits = 0;\n   j->code_buffer = 0;\n   j->nomore = 0;\n   j->zeros = 0;\n")
  set(finish "   if (j->progressive)\n      stbi__jpeg_finish(j);\n")
  quillon_stb_replace("${finish}" "   ${check}${finish}")
  set(fill "      unsigned int b = j->nomore ? 0 : stbi__get8(j->s);\n")
  quillon_stb_replace("${fill}" "      j->zeros += j->nomore;\n${fill}")
  set(present "")
  if(EXISTS ${made})
    file(READ ${made} present)
  endif()
  if(NOT present STREQUAL text)
    file(WRITE ${made} "${text}")
  endif()
  set(${out} ${folder} PARENT_SCOPE)
  set(options -fwrapv)
  if(QUILLON_SANITIZE)
    list(APPEND options -fno-sanitize=nonnull-attribute)
  endif()
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()
