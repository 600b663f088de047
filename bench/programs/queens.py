import sys
def safe(board, row, column):
    for r in range(1, row):
        c = board[r]
        if c == column or abs(c - column) == row - r: return False
    return True
def main(n):
    board = [0] * (n + 1)
    found, total, row = 0, 0, 1
    while row > 0:
        column = board[row] + 1
        while column <= n and not safe(board, row, column): column += 1
        if column > n:
            board[row] = 0
            row -= 1
        else:
            board[row] = column
            if row == n:
                found += 1
                for i in range(1, n + 1): total = (total * 31 + board[i]) % 1000003
            else:
                row += 1
    print(found, total)
main(int(sys.argv[1]))
