# SPDX-License-Identifier: MIT
#
# What a forge makes of a link and the reference site cannot: a heading of another document leads to
# that document, and a link to what does not stand in docs or beside it is plain text.
/^ *```/,/^ *```/!{
    s/\]\(((\.\.\/|docs\/)?[^):#/]+\.md)(#[^)]*)?\)/]<(\1)>/g
    s/\]\((https?:[^)]*)\)/]<(\1)>/g
    s/!\[([^]]*)\]\(([^)]*)\)/!<[\1]>(\2)/g
    s/\[([^][]+)\]\([^)]*\)/\1/g
    s/\]<\(([^)]*)\)>/](\1)/g
    s/!<\[([^]]*)\]>/![\1]/g
}
