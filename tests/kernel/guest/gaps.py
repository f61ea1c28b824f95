"""Tells how often the numbers of a recording's packets do not rise by one, and how many packets there are."""

import sys

PACKET_DIGITS = 128
NUMBER = slice(8, 12)

numbers = []
for line in open(sys.argv[1]):
    words = line.split()
    if len(words) == 2 and len(words[1]) == PACKET_DIGITS:
        numbers.append(int.from_bytes(bytes.fromhex(words[1])[NUMBER], "little"))
print(sum(b != a + 1 for a, b in zip(numbers, numbers[1:])), "gaps in", len(numbers))
