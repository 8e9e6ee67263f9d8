// tests/support/death.h: what death tests need to match the library's
// assertion texts on every platform.
#pragma once

// A line number in a death test's pattern. GoogleTest's own simple regular
// expressions (used on Windows) know no bracket expressions, and POSIX ones
// know no \d.
#if defined(_WIN32)
#  define TAVLO_LINE_NUMBER "\\d+"
#else
#  define TAVLO_LINE_NUMBER "[0-9]+"
#endif
