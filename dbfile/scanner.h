// dbfile/scanner.h: turns the bytes of the database file being read into
// tokens for the parser, one token per call, and keeps the line counter that
// messages give. All state is module-wide: one file is read at a time.
#ifndef TAVLOMS_DBFILE_SCANNER_H
#define TAVLOMS_DBFILE_SCANNER_H

#include <cstddef>
#include <cstdint>

#include "dbfile/keywords.h"

namespace tavlo::dbfile {

// Longest identifier or number the scanner collects; longer ones are
// reported as invalid symbols.
constexpr int kTokenTextSize = 80;

// The semantic value of the last token.
struct TokenValue {
    std::uint64_t integer;  // INTEGER and LONG, unless `huge`
    double number;          // FLOAT; INTEGER and LONG as well
    bool huge;              // LONG too large for 64 bits: only `number` holds it
    const char* text;       // SYMBOL and STRING: the scanner's own copy, valid
    std::size_t length;     //   until the next token
    int line;               // line counter when the token began
    const unsigned char* start;  // where it began in the input
};

// Empties the push-back stack and sets the line counter to 0; the scanner
// then reads the open input (dbfile/input.h) from its start.
void StartScanner();

// The next token: 0 at the end of the file, a character code for a
// character token, a Token number otherwise. Errors in the text are reported
// through the reader's reporting (which ends the read); the error token 256
// is returned where the reporting lets the read go on.
int NextToken();

// The value of the token NextToken returned last.
const TokenValue& CurrentToken();

// The number of line feeds read from the file so far.
int CurrentLine();

// The read position in the input: after the last token, unless characters
// were pushed back.
const unsigned char* ScanPosition();

// The character machinery under NextToken: ReadChar takes the top of the
// push-back stack, else the next byte of the file (-1 at its end); only a
// line feed taken from the file counts a line. UnreadChar pushes one back.
int ReadChar();
void UnreadChar(int c);

// The layout part of a signal line, after its ":":
//   start '|' length '@' order sign '(' factor ',' offset ')'
//   '[' minimum '|' maximum ']' unit
struct SignalLayout {
    unsigned int startBit;
    unsigned int length;
    unsigned int order;  // 0 or 1
    bool isSigned;
    double factor;
    double offset;
    double minimum;
    double maximum;
    const char* unit;  // into the file; not terminated
    std::size_t unitLength;
};

// Reads the layout of a signal line in one go when it is written plainly:
// blanks and tabs only between its parts, numbers without exponents and of
// at most 15 digits, a unit without backslash or line feed. Then the
// position is after the unit's closing quote and true is returned. Anything
// else returns false and reads nothing, and the line is read token by token;
// both ways give the same values. Signal lines are most of a file, so this
// is most of the reading.
bool ScanSignalLayout(SignalLayout* layout);

// The start of a signal line after its "SG_", read in one go when it is
// plain: its name, at most one multiplexer mode, ":" and the layout in the
// plain form of ScanSignalLayout, all on the line, each name one the
// scanner would give as a symbol (no keyword, no declared new symbol).
// Then the position is after the unit's closing quote and true is
// returned; else nothing is read. The names point into the file, not
// terminated.
// Names of the file, not terminated.
struct PlainText {
    const char* text;
    std::size_t length;
};

struct SignalHead {
    PlainText name;
    PlainText mode;  // text null: none
    SignalLayout layout;
};
bool ScanSignalHead(SignalHead* head);

// The rest of a message line after its "BO_", read in one go when it is
// plain and on one line: its identifier (at most 32 bits), its name, ":",
// its length (at most 16 bits) and its transmitter, the names ones the
// scanner would give as symbols and the transmitter's followed by a blank, a
// tab or the line's end. Then the position is after the transmitter and true
// is returned; else nothing is read.
struct MessageHead {
    unsigned int id;
    PlainText name;
    unsigned int dlc;
    PlainText transmitter;
};
bool ScanMessageHead(MessageHead* head);

// The receivers of a signal line after its unit, read in one go while they
// are plain: names the scanner would give as symbols, separated by ","
// (blanks and tabs around it), on the line. At most `most` are taken; the
// read position is then after the last one (a "," after it that no name
// follows on the line is left). Returns how many.
std::size_t ScanReceivers(PlainText* names, std::size_t most);

// What a statement is about: "BU_", "BO_", "SG_" or "EV_" and what it
// names (names the scanner would give as symbols), or nothing.
struct ObjectRef {
    int object;       // the keyword's token, or 0: the network
    unsigned int id;  // after "BO_" and "SG_"
    PlainText item;   // the node, signal or variable named
};

// The rest of an attribute value statement after its "BA_", read in one go
// when it is plain and on one line: the attribute's name (a string without
// backslashes), what it is about (see ObjectRef), then a number as
// ScanSignalLayout reads one, and ";". Then the position is after the ";"
// and true is returned; else nothing is read.
struct AttributeValue {
    PlainText name;  // between the quotes
    ObjectRef of;
    double number;
};
bool ScanAttributeValue(AttributeValue* value);

// The rest of a comment statement after its "CM_", read in one go when it is
// plain and on one line: what it is about (see ObjectRef), its text (a
// string without backslashes) and ";". Then the position is after the ";"
// and true is returned; else nothing is read.
struct Comment {
    ObjectRef of;
    PlainText text;  // between the quotes
};
bool ScanComment(Comment* comment);

// The value descriptions of a "VAL_" statement after what they describe, up
// to and including the ";", read in one go when they are plain and on one
// line: each an integer of at most 18 digits, "-" directly before it or
// none, then a string without backslashes. When there are at most `most`,
// *count tells how many and true is returned; more, or any not plain, read
// nothing.
struct ValueDescription {
    bool negative;
    std::uint64_t magnitude;
    PlainText text;  // between the quotes
};
constexpr std::uint64_t kMostPlainValue = 999999999999999999u;
bool ScanValueDescriptions(ValueDescription* values, std::size_t most, std::size_t* count);

// Closes the input after a syntax error and reports it (code 1 with the
// current line and `text` as context). Does not return when the report ends
// the read.
void ReportSyntaxError(const char* text);

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_SCANNER_H
