# Cost against size, log-log, one line per benchmark family; `data` and `out` come from -e.
set terminal svg size 800,500 noenhanced
set output out
set logscale xy
set xlabel "rows (equations)"
set ylabel "ms per run (per pivot: ms per 2 pivots)"
set key left top
plot for [i=0:*] data index i using 1:2 with linespoints title columnheader(1)
