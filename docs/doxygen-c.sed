# SPDX-License-Identifier: Apache-2.0
# For the reference: the plain comments of C headers document what follows them, or what they stand behind.
/^\/\* .*-----*\*\/$/d
s,^\( *\)/\* ,\1/** ,
s,^\(.*[^ /].*[;\,a-zA-Z0-9"]\) */\* \(.*\),\1 /**< \2,
