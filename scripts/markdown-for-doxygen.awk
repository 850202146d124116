# Turns a page of the manual, which is written for GitHub, into one for Doxygen: headings get the
# names that links use, links to other pages name these, links to other files become plain text.
# Usage, in the repository: awk -f scripts/markdown-for-doxygen.awk FILE.md

# The page's name: its file's, for a README with its directory's.
function page(path, from,    parts, n, base) {
    n = split(path, parts, "/")
    base = parts[n]
    sub(/\.md$/, "", base)
    if (base == "README") {
        base = n > 1 ? parts[n - 1] : ""
        if (n == 1 && split(from, parts, "/") > 1)
            base = parts[split(from, parts, "/") - 1]
        if (base == ".." || path == ENVIRON["PWD"] "/README.md")
            return "mainpage"
    }
    return "page-" base
}

# As GitHub names headings.
function slug(heading) {
    gsub(/\]\([^)]*\)/, "", heading)
    gsub(/[^A-Za-z0-9_ -]/, "", heading)
    sub(/^ +/, "", heading)
    sub(/ +$/, "", heading)
    gsub(/ /, "-", heading)
    return tolower(heading)
}

function named(name, heading) {
    if (heading != "")
        return name "-" heading
    return name == "mainpage" ? "index" : name
}

function anchored(line,    text) {
    text = line
    sub(/^#+ +/, "", text)
    return line " {#" (isTitled ? self "-" slug(text) : self) "}"
}

function linked(line,    result, text, target, hash) {
    result = ""
    while (match(line, /\[[^]\[]*\]\([^)]*\)/)) {
        result = result substr(line, 1, RSTART - 1)
        text = substr(line, RSTART, RLENGTH)
        line = substr(line, RSTART + RLENGTH)
        target = text
        sub(/^.*\]\(/, "", target)
        sub(/\)$/, "", target)
        sub(/\]\(.*$/, "]", text)
        hash = index(target, "#") ? substr(target, index(target, "#") + 1) : ""
        sub(/#.*$/, "", target)
        if (target ~ /:\/\// || result ~ /!$/)
            result = result text "(" target ")"
        else if (target == "" || target ~ /\.md$/) {
            gsub(/`/, "", text) # which Doxygen would show
            result = result text "(#" named(target == "" ? self : page(target, FILENAME), hash) ")"
        }
        else
            result = result substr(text, 2, length(text) - 2)
    }
    return result line
}

FNR == 1 { self = page(FILENAME, FILENAME) }
/^```/ { inCode = !inCode }
inCode { print; next }
/^#+ / { print anchored($0); isTitled = 1; next }
# A link may go on in the next line.
{
    text = $0
    while (text ~ /\[[^]]*$/ && getline > 0)
        text = text "\n" $0
    print linked(text)
}
