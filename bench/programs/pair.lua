local function divided(a, b) return {a // b, tostring(a % b)} end
local sum = 0
for i = 1, tonumber(arg[1]) do
  local p = divided(i, 10)
  sum = sum + p[1] + #p[2]
end
print(sum)
