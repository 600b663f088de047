local function sequence(seed, n)
  local s = {}
  for i = 1, n do
    seed = seed * 16807 % 2147483647
    s[i] = seed % 20
  end
  return s
end
local function common(a, b)
  local above = {}
  for j = 0, #b do above[j] = 0 end
  for i = 1, #a do
    local x, left, corner = a[i], 0, 0
    for j = 1, #b do
      local up = above[j]
      local best
      if x == b[j] then best = corner + 1 elseif up > left then best = up else best = left end
      above[j] = best
      corner = up
      left = best
    end
  end
  return above[#b]
end
local n = tonumber(arg[1])
print(common(sequence(1, n), sequence(2, n)))
