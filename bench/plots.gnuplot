# gnuplot -e "qt6='figures.tsv'; qt5='figures.tsv'; images='DIRECTORY'" plots.gnuplot
set terminal svg size 800,420 font "sans-serif,12" background "white"
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.8 border rgb "white"
set grid ytics
set key top right
set datafile separator "\t"

# One column of the rows that both programs do in the same way.
figures(file, program, rows, column) = sprintf("< awk -F'\\t' -v OFS='\\t' " \
    ."'$2 == \"%s\" && $1 ~ /^(%s)$/ { print $1, $%d }' %s", program, rows, column, file)
all = "check|log|receive|upload|start"
large = "receive|upload"

set output images."/performance-time.svg"
set title "Time of the library, as a ratio of the others' time (less is faster)"
set logscale y 2
set yrange [0.25:16]
set ytics (0.25, 0.5, "1 (the same)" 1, 2, 4, 8, 16)
plot figures(qt6, "bench_qt", all, 6) using 2:xtic(1) title "÷ bare Qt 6", \
     figures(qt5, "bench_qt", all, 6) using 2 title "÷ bare Qt 5", \
     figures(qt6, "bench_curl", all, 6) using 2 title "Qt 6 ÷ libcurl", \
     figures(qt5, "bench_curl", all, 6) using 2 title "Qt 5 ÷ libcurl", \
     1 with lines linecolor "black" notitle

set output images."/performance-memory.svg"
set title "Peak memory of a 256 MiB transfer, as a ratio of the file's size"
unset logscale y
set yrange [0:2.5]
set ytics 0.5
ratio(kib) = kib / (256 * 1024)
plot figures(qt6, "bench_korrin", large, 5) using (ratio($2)):xtic(1) title "library, Qt 6", \
     figures(qt5, "bench_korrin", large, 5) using (ratio($2)) title "library, Qt 5", \
     figures(qt6, "bench_qt", large, 5) using (ratio($2)) title "bare Qt 6", \
     figures(qt5, "bench_qt", large, 5) using (ratio($2)) title "bare Qt 5", \
     figures(qt6, "bench_curl", large, 5) using (ratio($2)) title "libcurl"
