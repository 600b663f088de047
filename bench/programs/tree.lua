local function grow(depth)
  if depth == 0 then return "leaf" end
  return {depth, grow(depth - 1), grow(depth - 1)}
end
local function count(t)
  if type(t) == "string" then return 1 end
  return 1 + count(t[2]) + count(t[3])
end
local nodes = 0
for _ = 1, tonumber(arg[1]) do
  local t = grow(7)
  nodes = nodes + count(t)
end
print(nodes)
