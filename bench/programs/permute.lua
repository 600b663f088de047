local n, p = tonumber(arg[1]), {}
for i = 1, n do p[i] = i end
local function turns(p)
  local q = {}
  for i = 1, n do q[i] = p[i] end
  local rounds, first = 0, q[1]
  while first > 1 do
    local low, high = 1, first
    while low < high do
      q[low], q[high] = q[high], q[low]
      low, high = low + 1, high - 1
    end
    rounds, first = rounds + 1, q[1]
  end
  return rounds
end
local count, most, sum, more = 0, 0, 0, true
while more do
  local r = turns(p)
  if r > most then most = r end
  sum = sum + r * p[n]
  count = count + 1
  local i = n - 1
  while i > 0 and p[i] > p[i + 1] do i = i - 1 end
  if i == 0 then
    more = false
  else
    local x, j = p[i], n
    while p[j] < x do j = j - 1 end
    p[i], p[j] = p[j], x
    local low, high = i + 1, n
    while low < high do
      p[low], p[high] = p[high], p[low]
      low, high = low + 1, high - 1
    end
  end
end
print(string.format("%d %d %d", count, most, sum))
