# awk -v section=qt6 -f page.awk FIGURES PAGE: the page with the figures of bench_compare between
# "<!-- measured: SECTION -->" and "<!-- end -->"; all else stays as it is.
BEGIN {
    FS = "\t"
    title["check"] = "check, answer parsed"
    title["log"] = "check with its log post"
    title["receive"] = "256 MiB to a file"
    title["receive-streamed"] = "256 MiB to a file, *others stream*"
    title["upload"] = "256 MiB signed PUT"
    title["upload-streamed"] = "256 MiB signed PUT, *others stream*"
    title["start"] = "cold start: load, open, first check"
    fileKib = 256 * 1024
}

NR == FNR {
    if (!(($1) in known))
        rows[++count] = $1
    known[$1] = 1
    seconds[$1, $2] = $3
    peak[$1, $2] = $5
    ratio[$1, $2] = $6
    processorRatio[$1, $2] = $7
    next
}

function duration(value)
{
    return value < 0.01 ? sprintf("%.2f ms", value * 1000) : \
        value < 1 ? sprintf("%.0f ms", value * 1000) : sprintf("%.2f s", value)
}

function peakOf(row, program)
{
    return row ~ /^(receive|upload)/ ? sprintf("%.2f", peak[row, program] / fileKib) : \
        sprintf("%.0f MiB", peak[row, program] / 1024)
}

function writeTable(    i, row)
{
    print "| | time ÷ bare Qt | time ÷ libcurl | processor ÷ bare Qt | processor ÷ libcurl " \
        "| peak memory: library | bare Qt | libcurl | library's time on this machine |"
    print "|---|---|---|---|---|---|---|---|---|"
    for (i = 1; i <= count; i++) {
        row = rows[i]
        if (!(row in title))
            continue
        printf "| %s | %.2f | %.2f | %.2f | %.2f | %s | %s | %s | %s |\n", title[row],
            ratio[row, "bench_qt"], ratio[row, "bench_curl"],
            processorRatio[row, "bench_qt"], processorRatio[row, "bench_curl"],
            peakOf(row, "bench_korrin"), peakOf(row, "bench_qt"), peakOf(row, "bench_curl"),
            duration(seconds[row, "bench_korrin"])
    }
    printf "\nA check before which 1,000 kept records are posted: %s on this machine.\n",
        duration(seconds["kept", "bench_korrin"])
}

inside && /^<!-- end -->/ { inside = 0 }
!inside { print }
index($0, "<!-- measured: " section " -->") == 1 { inside = 1; writeTable() }
