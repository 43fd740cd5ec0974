# SPDX-License-Identifier: MIT
#
# Lists the messages of the library's log points: each is a literal behind the prefix of LogPoint.h.
file(STRINGS ${LIBRARY} formats REGEX "^%s: %s\\(%d\\) > ")
list(TRANSFORM formats REPLACE "^%s: %s\\(%d\\) > (.*)$" "Format(R\"text(\\1)text\"),")
list(JOIN formats "\n" formats)
file(WRITE ${OUTPUT} "${formats}\n")
