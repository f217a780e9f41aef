# Makes a C++ file with the page and its Content-Security-Policy.
# usage: cmake -D PAGE=page.html -D OUTPUT=page.cpp -P embed_page.cmake

# Sets `result` to the SHA-256 of `text` in base64. CMake has no base64: three bytes, six hexadecimal digits, give four
# characters.
function(hash_text result text)
  set(alphabet "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")
  string(SHA256 digits "${text}")
  string(APPEND digits "00") # 32 bytes and one more make eleven groups
  set(base64 "")
  foreach(start RANGE 0 60 6)
    string(SUBSTRING "${digits}" ${start} 6 group)
    foreach(shift 18 12 6 0)
      math(EXPR index "0x${group} >> ${shift} & 63")
      string(SUBSTRING "${alphabet}" ${index} 1 character)
      string(APPEND base64 ${character})
    endforeach()
  endforeach()
  string(SUBSTRING "${base64}" 0 43 base64) # the 44th character comes from the added byte
  set(${result} "${base64}=" PARENT_SCOPE)
endfunction()

# Sets `result` to the hash of the page's element <tag>.
function(hash_element result page tag)
  string(FIND "${page}" "<${tag}>" start)
  string(FIND "${page}" "</${tag}>" end)
  string(LENGTH "<${tag}>" length)
  if(start EQUAL -1 OR end EQUAL -1)
    message(FATAL_ERROR "${PAGE}: no element <${tag}>")
  endif()
  math(EXPR start "${start} + ${length}")
  math(EXPR length "${end} - ${start}")
  string(SUBSTRING "${page}" ${start} ${length} text)
  hash_text(hash "${text}")
  set(${result} "${hash}" PARENT_SCOPE)
endfunction()

file(READ "${PAGE}" page)
hash_element(script "${page}" script)
hash_element(style "${page}" style)
file(WRITE "${OUTPUT}" "#include \"page.h\"

namespace ctl {

const std::string_view PAGE = R\"page(${page})page\";

const std::string_view PAGE_POLICY =
    \"default-src 'none'; script-src 'sha256-${script}'; style-src 'sha256-${style}'; connect-src 'self'; \"
    \"img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'\";

} // namespace ctl
")
