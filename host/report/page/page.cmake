# cmake -D PARTS=FOLDER -D BODY=FILE -D STYLES=FILE... -D SCRIPTS=FILE... -D TITLE=TEXT -D PAGE=FILE
#       -P page.cmake
#
# Puts body, styles and scripts into frame.html, those of all pages first, and the hashes of both into
# its Content-Security-Policy, so that a browser runs nothing else.

# Stores in `result` the hexadecimal digits in base 64: three of them are two characters. A SHA-256
# has 64, so one is left at the end.
function(to_base64 digits result)
    string(CONCAT alphabet ABCDEFGHIJKLMNOPQRSTUVWXYZ abcdefghijklmnopqrstuvwxyz 0123456789 +/)
    set(text "")
    foreach(at RANGE 0 63 3)
        string(SUBSTRING "${digits}00" ${at} 3 three)
        math(EXPR high "0x${three} >> 6")
        math(EXPR low "0x${three} & 63")
        foreach(value IN ITEMS ${high} ${low})
            string(SUBSTRING "${alphabet}" ${value} 1 character)
            string(APPEND text "${character}")
        endforeach()
    endforeach()
    string(SUBSTRING "${text}" 0 43 text)
    set(${result} "${text}=" PARENT_SCOPE)
endfunction()

# Stores in `result` what the files hold, one behind the other.
function(read_all files result)
    set(all "")
    foreach(file IN LISTS files)
        file(READ "${file}" text)
        string(APPEND all "${text}")
    endforeach()
    set(${result} "${all}" PARENT_SCOPE)
endfunction()

read_all("${BODY}" BODY)
read_all("${PARTS}/common.css;${STYLES}" STYLE)
read_all("${PARTS}/common.js;${SCRIPTS}" SCRIPT)
string(SHA256 style_digits "${STYLE}")
string(SHA256 script_digits "${SCRIPT}")
to_base64(${style_digits} STYLE_HASH)
to_base64(${script_digits} SCRIPT_HASH)
file(READ "${PARTS}/frame.html" text)
string(CONFIGURE "${text}" text @ONLY)
file(WRITE "${PAGE}" "${text}")
