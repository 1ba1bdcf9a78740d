"""The README's Python example: python3 read_sample.py examples/data/sample_points.txt"""
import sys

import pallion

grid = pallion.read_table(sys.argv[1], header=1, parse="Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6")
xyz = grid["Positions"].to_numpy()            # (n, 3) float64, a view of the converted rows
print(len(xyz), xyz.mean(axis=0), grid.fields["Colours"].to_numpy().dtype)
print(grid.to_pandas().describe().loc[["min", "max"]].T)
