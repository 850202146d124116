# gnuplot -e "data='soak.csv'; picture='soak.svg'" soak.gnuplot
set terminal svg size 800,420 font "sans-serif,12" background "white"
set output picture
set datafile separator ","
set key center right
set xlabel "calls"
set ylabel "resident memory [MiB]"
set y2label "descriptors, threads"
set yrange [0:24]
set y2range [0:24]
set y2tics
set ytics nomirror
set grid ytics
plot data using 1:($2/1024) every ::1 with lines linewidth 2 title "resident memory", \
     data using 1:3 every ::1 axes x1y2 with lines title "descriptors", \
     data using 1:4 every ::1 axes x1y2 with lines title "threads"
