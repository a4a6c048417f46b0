# The headers' comments are plain "//" lines; Doxygen takes "///" lines as
# documentation. Comments at the end of a declaration stay as they are.
s|^\([[:space:]]*\)//\([^/]\)|\1///\2|
s|^\([[:space:]]*\)//$|\1///|
