local function neighbours(g, above, here, below, left, x, right)
  return g[above + left] + g[above + x] + g[above + right] + g[here + left]
    + g[here + right] + g[below + left] + g[below + x] + g[below + right]
end
local function generation(g, w)
  local next, last = {}, w - 1
  for y = 0, last do
    local above, here, below = w * ((y + last) % w), w * y, w * ((y + 1) % w)
    for x = 0, last do
      local n = neighbours(g, above, here, below, (x + last) % w, x, (x + 1) % w)
      if n == 3 then next[here + x] = 1
      elseif n == 2 then next[here + x] = g[here + x]
      else next[here + x] = 0 end
    end
  end
  return next
end
local w, grid, seed = tonumber(arg[1]), {}, 42
for i = 0, w * w - 1 do
  seed = seed * 16807 % 2147483647
  grid[i] = seed % 10 < 3 and 1 or 0
end
for g = 1, 100 do grid = generation(grid, w) end
local alive, sum = 0, 0
for i = 0, w * w - 1 do
  alive = alive + grid[i]
  sum = (sum * 31 + grid[i]) % 1000003
end
print(string.format("%d %d", alive, sum))
