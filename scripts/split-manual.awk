# Makes a man page of each function of Doxygen's page of a header, and a page of the rest.
# Usage: awk -v directory=DIRECTORY -v version=VERSION -f split-manual.awk korrin.h.3

function title(name) {
    return ".TH " name " 3 \"\" \"VornakKorrin " version "\" \"VornakKorrin\""
}

function write(line) {
    print line > page
}

# The sentences that korrin.h begins with such a word are sections of their own.
function sections(line,    words, i) {
    split("Errors Lifetime Threads", words, " ")
    for (i = 1; i in words; ++i)
        if (match(line, "(^| )" words[i] ": "))
            line = substr(line, 1, RSTART - 1) "\n.SH " toupper(words[i]) "\n" \
                substr(line, RSTART + RLENGTH)
    sub(/^\n/, "", line)
    return line
}

function begin(prototype,    name) {
    name = prototype
    sub(/ \(.*/, "", name)
    sub(/.*[ *]/, "", name)
    gsub(/ \(/, "(", prototype)
    gsub(/\* /, "*", prototype)
    gsub(/\*\*/, "**", prototype)
    page = directory "/" name ".3"
    write(title(name))
    write(".ad l\n.nh\n.SH NAME")
    write(name " \\- " brief[name])
    write(".SH SYNOPSIS\n.nf\n.B #include <korrin.h>\n.sp\n.B \"" prototype ";\"\n.fi")
    write(".SH DESCRIPTION")
}

function finish() {
    if (page == header || page == "")
        return
    write(".SH SEE ALSO\n.BR korrin.h (3)")
    close(page)
}

BEGIN { header = directory "/korrin.h.3"; page = header }

/^\.TH / { write(title("korrin.h")); next }
/^\.SH "Author"/ { finish(); exit }
/^\.SH "Function Documentation"/ { inFunctions = 1; next }

# "Functions" in the synopsis: prototype, .br, brief description.
!inFunctions && /^\.RI ".*\\fBkorrin[A-Za-z]*\\fP \(/ {
    current = $0
    sub(/.*\\fB/, "", current)
    sub(/\\fP.*/, "", current)
}
!inFunctions && current != "" && /^\.RI "[A-Z]/ {
    text = $0
    sub(/^\.RI "/, "", text)
    sub(/(\\&\.)? ?"$/, "", text)
    brief[current] = text
    current = ""
}

inFunctions && /^\.SS / {
    finish()
    prototype = $0
    sub(/^\.SS "/, "", prototype)
    sub(/"$/, "", prototype)
    begin(prototype)
    next
}
inFunctions && /^\\fBParameters\\fP$/ { write(".SH ARGUMENTS"); next }
inFunctions && /^\\fBReturns\\fP$/ { write(".SH RETURN VALUE"); next }
inFunctions { write(sections($0)); next }
{ write($0) }
