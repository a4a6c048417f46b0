# Plots bench/work/scaling.dat (written by bench/run): wall time of create
# and t against the member count, one line per tool, both axes logarithmic.
# Usage: gnuplot -e "datafile='...'; outfile='...'" bench/scaling.gp
set terminal pngcairo size 1200,520 font ",10"
set output outfile
set multiplot layout 1,2 title "Wall time (median) against member count, 1-3 KB ELF32 members"
set logscale xy
set grid
set datafile missing "?"
set key top left
set xlabel "members"
set ylabel "seconds"
set title "create with symbol index"
plot datafile using 1:2 with linespoints title "arvela", \
     ''       using 1:3 with linespoints title "GNU ar", \
     ''       using 1:4 with linespoints title "llvm-ar", \
     ''       using 1:5 with linespoints dashtype 2 title "copy (xargs cat)"
set title "t (list members)"
plot datafile using 1:6 with linespoints title "arvela", \
     ''       using 1:7 with linespoints title "GNU ar", \
     ''       using 1:8 with linespoints title "llvm-ar"
unset multiplot
