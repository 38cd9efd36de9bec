// SPDX-License-Identifier: Apache-2.0
// The line protocol between the tests and a driver.
// Requests come as text lines; every answer is one line "WORKER VALUE NUMBER" (decimal, hexadecimal, decimal) on the
// descriptor that announce.h names. Nothing here touches the heap.
#pragma once

enum { kMaxLine = 512, kMaxWords = 16 };

// What a command answers: a value, and errno or another number behind it.
struct Answer {
  unsigned long value;
  int number;
};

// Reads one line without its end into line[kMaxLine]; 0 at the end of the channel.
int read_line(int descriptor, char* line);

// Cuts a line into words[kMaxWords], a null pointer behind the last; returns how many there are.
int cut_words(char* line, char** words);

void send_answer(int worker, struct Answer answer);
