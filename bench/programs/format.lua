local n = tonumber(arg[1]) // 4
local chars = 0
for i = 1, n do
  chars = chars + #string.format("%08d", i)
  chars = chars + #string.format("%.6f", i / 3)
  chars = chars + #string.format("%-20s|", "name")
  chars = chars + #string.format("%x", i * 255)
end
print(chars)
