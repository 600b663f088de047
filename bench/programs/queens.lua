local abs = math.abs
local function safe(board, row, column)
  for r = 1, row - 1 do
    local c = board[r]
    if c == column or abs(c - column) == row - r then return false end
  end
  return true
end
local n, board = tonumber(arg[1]), {}
for i = 1, n do board[i] = 0 end
local found, sum, row = 0, 0, 1
while row > 0 do
  local column = board[row] + 1
  while column <= n and not safe(board, row, column) do column = column + 1 end
  if column > n then
    board[row] = 0
    row = row - 1
  else
    board[row] = column
    if row == n then
      found = found + 1
      for i = 1, n do sum = (sum * 31 + board[i]) % 1000003 end
    else
      row = row + 1
    end
  end
end
print(string.format("%d %d", found, sum))
