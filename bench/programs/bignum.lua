local function times(a, factor)
  local carry, places = 0, a[0]
  for i = 1, places do
    carry = carry + a[i] * factor
    a[i] = carry % 1000000000
    carry = carry // 1000000000
  end
  if carry > 0 then
    a[0] = places + 1
    a[places + 1] = carry
  end
end
local function plus(a, b)
  local carry, places = 0, b[0]
  for i = 1, places do
    local s = b[i] + (i <= a[0] and a[i] or 0) + carry
    if s >= 1000000000 then
      carry, s = 1, s - 1000000000
    else
      carry = 0
    end
    a[i] = s
  end
  a[0] = places
  if carry == 1 then
    a[0] = places + 1
    a[places + 1] = 1
  end
end
local function digits(a)
  local sum = 0
  for i = 1, a[0] do
    local place = a[i]
    while place > 0 do
      sum = sum + place % 10
      place = place // 10
    end
  end
  return sum
end
local n = tonumber(arg[1])
local factorial, total = {[0] = 1, 1}, {[0] = 1, 1}
for k = 2, n do
  times(factorial, k)
  plus(total, factorial)
end
print(string.format("%d %d %d", total[0], digits(factorial), digits(total)))
