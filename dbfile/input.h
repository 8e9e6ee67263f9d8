// dbfile/input.h: the database file being read, held whole in memory.
//
// Only one file is read at a time, so the input is module-wide. The reader
// opens it, the scanner walks its bytes, and every path that reports an
// error closes it first (record creation does too when memory runs out).
#ifndef TAVLOMS_DBFILE_INPUT_H
#define TAVLOMS_DBFILE_INPUT_H

#include <cstddef>

namespace tavlo::dbfile {

// Reads the whole file into memory as the current input, closing any input
// that was open. False (and no input open) when the file cannot be read.
// A carriage return before a line feed is dropped, as in a text-mode read;
// every other byte is taken as it stands.
bool OpenInput(const char* path);

bool IsInputOpen();

// Zero bytes that follow the open input's bytes, at least: a scanner may
// read a vector's width past a byte it looks at before the end.
constexpr std::size_t kInputPadding = 32;

// The bytes of the open input; null and 0 when none is open.
const unsigned char* InputData();
std::size_t InputSize();

// Gives back the memory of the input's bytes before the line that position
// (in the input) stands on, which a read that has come that far does not
// look at again: the reader calls it at each statement. The memory goes in
// steps of a quarter megabyte, only where the system allows, and only when
// the line's start is near; the bytes given back read as zeros.
void DiscardInputBefore(const unsigned char* position);

// Releases the input if one is open and forgets it; does nothing while the
// input is held.
void CloseInput();

// Holds the input open through the error paths of a read (a read with a
// session goes on after them, or gives places in the file), or lets it go.
void HoldInput(bool hold);

// Whether the open input dropped carriage returns before line feeds.
bool InputHadCarriageReturns();

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_INPUT_H
