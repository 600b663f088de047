local n, dt = tonumber(arg[1]), 0.01
local x, y, z = {0.0, 4.84, 8.34, 12.9, 15.4}, {0.0, -1.16, 4.12, -15.1, -25.9}, {0.0, -0.1, -0.4, -0.22, 0.18}
local m, u, v, w = {39.5, 0.0377, 0.0113, 0.0017, 0.002}, {}, {}, {}
for i = 1, 5 do u[i], v[i], w[i] = y[i] / -10.0, x[i] / 10.0, 0.0 end
for _ = 1, n do
  for i = 1, 4 do
    local xi, yi, zi = x[i], y[i], z[i]
    for j = i + 1, 5 do
      local dx, dy, dz = xi - x[j], yi - y[j], zi - z[j]
      local d2 = dx * dx + (dy * dy + dz * dz)
      local mag = dt / (d2 * math.sqrt(d2))
      local mj = m[j] * mag
      u[i] = u[i] - dx * mj
      v[i] = v[i] - dy * mj
      w[i] = w[i] - dz * mj
      local mi = m[i] * mag
      u[j] = u[j] + dx * mi
      v[j] = v[j] + dy * mi
      w[j] = w[j] + dz * mi
    end
  end
  for i = 1, 5 do
    x[i] = x[i] + dt * u[i]
    y[i] = y[i] + dt * v[i]
    z[i] = z[i] + dt * w[i]
  end
end
print(string.format("%.9f %.9f", x[1], y[5]))
