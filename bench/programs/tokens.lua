local n = tonumber(arg[1])
local line = ""
for i = 1, 60 do line = line .. "word" .. (i * 7) .. "  " end
local words, chars = 0, 0
for r = 1, n do
  local t = line
  while t:find("%S") do
    local w, rest = t:match("^%s*(%S+)%s*(.*)$")
    t = rest
    words = words + 1
    chars = chars + #w
  end
end
print(string.format("%d %d", words, chars))
