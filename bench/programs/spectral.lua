local function a(i, j) return 1.0 / ((i + j) * (i + j + 1) // 2 + (i + 1)) end
local function times(v, n)
  local r = {}
  for i = 0, n - 1 do
    local s = 0.0
    for j = 0, n - 1 do s = s + a(i, j) * v[j + 1] end
    r[i + 1] = s
  end
  return r
end
local function transposed(v, n)
  local r = {}
  for i = 0, n - 1 do
    local s = 0.0
    for j = 0, n - 1 do s = s + a(j, i) * v[j + 1] end
    r[i + 1] = s
  end
  return r
end
local n, u, v = tonumber(arg[1]), {}, nil
for i = 1, n do u[i] = 1.0 end
for _ = 1, 3 do
  v = transposed(times(u, n), n)
  u = transposed(times(v, n), n)
end
local uv, vv = 0.0, 0.0
for i = 1, n do
  uv = uv + u[i] * v[i]
  vv = vv + v[i] * v[i]
end
print(string.format("%.9f", math.sqrt(uv / vv)))
