-- Lua's own way: a buffer, joined at the end.
local n, s, a = tonumber(arg[1]), {}, {{}}
for i = 1, n do
  s[#s + 1] = "x"
  a[1][#a[1] + 1] = "yz"
end
print(string.format("%d %d", #table.concat(s), #table.concat(a[1])))
