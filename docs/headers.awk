# Doxygen's input filter for the public headers. The comment on top of a header speaks of what the header is named after:
# it becomes that class's or namespace's documentation, with its terms (Units, Shape, Errors, ...) as a list and its
# examples as code. Blank lines further down make up for the lines that this adds, so that line numbers stay about right.

# What Doxygen would take for a command, a tag or emphasis is meant as it stands.
function escaped(text,    i, c, out) {
    for (i = 1; i <= length(text); i++) {
        c = substr(text, i, 1)
        out = out (c == "&" ? "&amp;" : c == "<" ? "&lt;" : c == ">" ? "&gt;" : index("\\%@#~*_", c) ? "\\" c : c)
    }
    return out
}

# In `code` and in "quotes" it takes nothing for anything.
function plain(text,    out) {
    while (match(text, /`[^`]*`|"[^"]*"/)) {
        out = out escaped(substr(text, 1, RSTART - 1)) substr(text, RSTART, RLENGTH)
        text = substr(text, RSTART + RLENGTH)
    }
    return out escaped(text)
}

# What is called `name` in this header: a class, a namespace, or the header itself.
function kind(name,    line, found) {
    found = "file"
    while (found == "file" && (getline line < FILENAME) > 0) {
        if (line ~ "^ *namespace " name "( |$)") found = "namespace"
        else if (line ~ "^ *(class|struct) .*" name "( |$)" && (line ~ /\{/ || line !~ /;$/)) found = "class"
    }
    close(FILENAME)
    return found
}

function say(line) { print "/// " line; owed++ }

function setCode(wanted) {
    if (code != wanted) say(wanted ? "@code{.cpp}" : "@endcode")
    code = wanted
}

function setList(wanted) {
    setCode(0)
    if (list && !wanted) say("</dd></dl>\n///")
    list = wanted
}

# One line of the top comment, without its "// ". Terms stand 2 columns in, their text 11, code 15, or 2 after the list.
function tell(text, next_,    term) {
    if (text ~ /^  [A-Z][A-Za-z0-9, -]*  +[^ ]/ || (match(text, /^  [A-Z][A-Za-z-]* /) && RLENGTH >= 11)) {
        setCode(0)
        match(text, /^  [A-Z][A-Za-z0-9, -]*  +/) || match(text, /^  [A-Z][A-Za-z-]* /)
        term = substr(text, 3, RLENGTH - 2)
        text = "           " substr(text, RLENGTH + 1)
        sub(/ +$/, "", term)
        say((list ? "</dd>" : "\n/// <dl class=\"terms\">") "<dt>" term "</dt><dd>")
        list = 1
        isExample = term == "Use" && text ~ /;$/
        if (isExample) setCode(1)
    } else if (text == "") {
        if (next_ !~ /^           /) { setList(0); isExample = 0 }
    } else if (text ~ /^               / || (text ~ /^  [^ ]/ && !list)) {
        setCode(1)
    } else if (!isExample) {
        text ~ /^ / ? setCode(0) : setList(0)
    }
    if (code) {
        text = substr(text, isExample ? 12 : list ? 16 : 3)
        gsub(/\/\*[A-Za-z ]*\*\/ ?/, "", text)  # Doxygen would not show its end
        print "/// " text
        return
    }
    sub(/^ +/, "", text)
    if (match(text, /^[a-z0-9]+(-[a-z0-9]+)+: /))
        print "/// <br><b>" substr(text, 1, RLENGTH - 2) "</b>: " plain(substr(text, RLENGTH + 1))
    else
        print "/// " plain(text)
}

NR == 1 {
    match($0, /^\/\/ [A-Za-z0-9]+/)
    name = substr($0, 4, RLENGTH - 3)
    what = kind(name)
    sub(/^\/\/ [^:]*: /, "")
    say("\\" what (what == "file" ? "" : " " name))
    print "/// \\brief " plain(toupper(substr($0, 1, 1)) substr($0, 2))
    next
}
/^\/\/( |$)/ && !isOver { top[++lines] = substr($0, 4); next }
!isOver {
    for (i = 1; i <= lines; i++) tell(top[i], top[i + 1])
    setList(0)
    isOver = 1
    # Functions and constants outside of classes and namespaces show only when their header is documented, too.
    if (what != "file") { print "\n/** \\file */"; owed += 2 }
}
/^(#pragma once)?$/ { if (owed > 0) { owed--; next } }
match($0, /^ *\/\/\/ /) || match($0, /\/\/\/< /) {
    print substr($0, 1, RSTART + RLENGTH - 1) plain(substr($0, RSTART + RLENGTH))
    next
}
{ print }
