import sys
from math import sqrt
def main(n):
    dt = 0.01
    x = [0.0, 4.84, 8.34, 12.9, 15.4]; y = [0.0, -1.16, 4.12, -15.1, -25.9]; z = [0.0, -0.1, -0.4, -0.22, 0.18]
    m = [39.5, 0.0377, 0.0113, 0.0017, 0.002]
    u = [b / -10.0 for b in y]; v = [a / 10.0 for a in x]; w = [0.0] * 5
    for _ in range(n):
        for i in range(4):
            xi, yi, zi = x[i], y[i], z[i]
            for j in range(i + 1, 5):
                dx, dy, dz = xi - x[j], yi - y[j], zi - z[j]
                d2 = dx * dx + (dy * dy + dz * dz)
                mag = dt / (d2 * sqrt(d2))
                mj = m[j] * mag
                u[i] -= dx * mj; v[i] -= dy * mj; w[i] -= dz * mj
                mi = m[i] * mag
                u[j] += dx * mi; v[j] += dy * mi; w[j] += dz * mi
        for i in range(5):
            x[i] += dt * u[i]; y[i] += dt * v[i]; z[i] += dt * w[i]
    print("%.9f %.9f" % (x[0], y[4]))
main(int(sys.argv[1]))
