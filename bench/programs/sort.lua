local n = tonumber(arg[1])
local seed, a = 42, {}
for i = 1, n do
  seed = (seed * 1103515245 + 12345) % 2147483648
  a[i] = seed % 1000000
end
local first, last = n // 2 + 1, n
while last > 1 do
  local v
  if first > 1 then
    first = first - 1
    v = a[first]
  else
    v = a[last]
    a[last] = a[1]
    last = last - 1
  end
  local hole = first
  local child = hole * 2
  while child <= last do
    if child < last then
      if a[child] < a[child + 1] then child = child + 1 end
    end
    if v < a[child] then
      a[hole] = a[child]
      hole = child
      child = child * 2
    else
      child = last + 1
    end
  end
  a[hole] = v
end
local sum = 0
for i = 1, n do sum = (sum * 31 + a[i]) % 1000003 end
print(sum)
