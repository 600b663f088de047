local n, line, known = tonumber(arg[1]), "", {}
for i = 1, 40 do
  known[i] = "name" .. i * 7
  line = line .. "name" .. (41 - i) * 7 .. " "
end
local sum = 0
for _ = 1, n do
  for w in line:gmatch("%S+") do
    local k = 1
    while known[k] ~= w do k = k + 1 end
    sum = sum + k
  end
end
print(sum)
