# Warnings and code generation shared by every target of the project.
add_compile_options(-Wall -Wextra -Wno-unused-parameter)

if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "i.86|x86")
  # x87 keeps excess precision; SSE2 keeps single-precision arithmetic identical on every target.
  add_compile_options(-msse2 -mfpmath=sse)
endif()

# The crash report walks the chain of saved frame pointers (on every target but 64-bit Windows,
# whose unwind tables serve instead), so every function keeps one, leaf functions too.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "i.86|x86|AMD64|amd64")
  add_compile_options(-fno-omit-frame-pointer -mno-omit-leaf-frame-pointer)
endif()

if(NOT WIN32)
  # Calls between the library's own exported functions bind locally and can be inlined; nothing
  # interposes the library's symbols.
  add_compile_options(-fno-semantic-interposition)
endif()

if(WIN32)
  # The Win32 API is used as of Windows XP onwards; keep the headers lean.
  add_compile_definitions(WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601)
endif()

if(CORESTONE_SANITIZE MATCHES "address|thread")
  # Line tables are all a sanitizer's report needs; full debug information doubles the build.
  add_compile_options(-g1)
endif()

if(CORESTONE_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(CORESTONE_SANITIZE STREQUAL "fuzzer")
  # Coverage for libFuzzer in every object; the fuzz programs add the fuzzer's own main.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(CORESTONE_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread)
  add_link_options(-fsanitize=thread)
endif()
