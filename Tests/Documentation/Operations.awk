# What the exported headers declare for their users: header, operation, the first sentence that is said about it,
# separated by tabs. Several declarations without a blank line between them share what stands above the first.
#
# clang-format keeps the headers in the form that is relied on here: a declaration begins at the left margin, or at
# four blanks inside a class, and ends in a semicolon.

function begin_file() {
    folder = FILENAME
    sub(/.*\//, "", folder)
    header = folder
    class = access = space = text = declaration = ""
}

# The first sentence of a docstring, as a sentence of its own.
function sentence(said,    end) {
    if (match(said, /^@return /)) said = "Returns " substr(said, RLENGTH + 1)
    else if (match(said, /^@retval +[A-Za-z_0-9]+ +/)) return ""
    sub(/ +@(param|return|retval|throws?) .*/, "", said)
    if (said ~ /^@/) return ""
    end = match(said, /\.( |$)/)
    if (end) said = substr(said, 1, end - 1)
    gsub(/@p /, "", said)
    gsub(/ +/, " ", said)
    # The phase handlers have their phase id beside them.
    if (said ~ /^[0-9]+$/) said = "The handler of phase " said
    sub(/^none: /, "A handler without a phase, ", said)
    gsub(/\|/, "\\|", said)
    return said
}

function declared(line,    name, said) {
    said = text
    # What stands behind the declaration is about it alone.
    if (match(line, /\/\/\/< .*/)) {
        said = substr(line, RSTART + 5)
        sub(/ *\/\/\/< .*/, "", line)
    }
    if (line ~ /= (delete|default);/) return
    sub(/\(.*/, "", line)
    name = line
    sub(/.*[ *&]/, "", name)
    # How an object comes and goes is said about its class.
    if (name == class || name ~ /^~|^operator/) return
    print header "\t" space (class != "" ? class "::" : "") name "\t" sentence(said)
}

FNR == 1 { begin_file() }

/^ *\/\/\/( |$)/ {
    if (!in_text) text = ""
    in_text = 1
    line = $0
    sub(/^ *\/\/\/ ?/, "", line)
    # A blank line of a docstring ends its sentence.
    text = text (text == "" || line == "" ? "" : " ") line
    if (line == "") text = text ". "
    next
}
{ in_text = 0 }
/^$/ { text = ""; next }

/^(class|struct) AF_API / { class = $3; sub(/:$/, "", class); access = /^struct/ ? "public" : "private"; text = ""; next }
class != "" && /^(public|private|protected):/ { access = $1; sub(/:/, "", access); next }
class != "" && /^};/ { class = ""; text = ""; next }
/^namespace / { space = $2 "::"; next }
/^} \/\/ namespace/ { space = ""; next }

declaration == "" && class == "" && !/^AF_API / { next }
declaration == "" && class != "" && (access == "private" || !/^    [A-Za-z~]/ || !/\(/) { if (!/\(/) text = ""; next }
{
    declaration = declaration (declaration == "" ? "" : " ") $0
    if (/; *($|\/\/\/<)/ || /[^ ] *[{] *[}]$/) {
        declared(declaration)
        declaration = ""
    }
}
