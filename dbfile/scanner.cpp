// dbfile/scanner.cpp: the hand-written scanner over the file's bytes.
//
// The whole file is in memory (dbfile/input.h), so the hot loops (names,
// numbers, strings, blanks) walk the bytes directly and classify them through
// a 256-entry table; the push-back stack is consulted first and is almost
// always empty. Only a line feed taken from the file counts a line.
#include "dbfile/scanner.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "dbfile/input.h"
#include "dbfile/number.h"
#include "dbfile/report.h"
#include "dbfile/session.h"

namespace tavlo::dbfile {

namespace {

// Character classes, one table lookup per byte instead of library calls.
enum : unsigned char {
    kBlank = 1,       // codes below 33
    kIdentStart = 2,  // "A"-"Z", "a"-"z", "_"
    kIdentChar = 4,   // identifier start or digit
    kDigit = 8,
    kKeywordChar = 16,  // "A"-"Z" and "_": keywords use nothing else
    kInvalid = 32,      // 128 and above
    kPunct = 64,        // a character token that nothing else can begin
};

struct CharTable {
    unsigned char classes[256];
    constexpr CharTable() : classes() {
        for (int c = 0; c < 256; ++c) {
            unsigned char bits = 0;
            if (c < 33) {
                bits |= kBlank;
            }
            const bool upper = c >= 'A' && c <= 'Z';
            if (upper || (c >= 'a' && c <= 'z') || c == '_') {
                bits |= kIdentStart | kIdentChar;
            }
            if (upper || c == '_') {
                bits |= kKeywordChar;
            }
            if (c >= '0' && c <= '9') {
                bits |= kDigit | kIdentChar;
            }
            if (c >= 128) {
                bits |= kInvalid;
            }
            for (const char* p = ":;,|@()[]+-*"; *p != '\0'; ++p) {
                if (c == *p) {
                    bits |= kPunct;
                }
            }
            classes[c] = bits;
        }
    }
};
constexpr CharTable kTable;

inline bool Is(int c, unsigned char bits) {
    return c >= 0 && (kTable.classes[c] & bits) != 0;
}

// Longest keyword: "SIGTYPE_VALTYPE_".
constexpr std::size_t kLongestKeyword = 16;

constexpr int kPushBackSize = 11;

const unsigned char* gPos = nullptr;
const unsigned char* gEnd = nullptr;
int gPushBack[kPushBackSize];
int gPushCount = 0;
int gLine = 0;
char gText[kTokenTextSize + 1 + 16];  // room for a vector's width past the end
std::string gString;
TokenValue gToken;

// The character machinery, inlined into the scanner's loops.
inline int Get() {
    if (gPushCount > 0) {
        return gPushBack[--gPushCount];
    }
    if (gPos >= gEnd) {
        return -1;
    }
    const int c = *gPos++;
    gLine += c == '\n';
    return c;
}

inline void Unget(int c) {
    if (gPushCount < kPushBackSize) {
        gPushBack[gPushCount++] = c;
    }
}

// The character that ends a name or number, left to be read again. It is
// read and pushed back, as the scanner has always done, so a line feed that
// ends a token is counted at once; any other character is simply looked at,
// which comes to the same and spares the push-back in the common case.
inline int Peek() {
    if (gPushCount == 0 && gPos < gEnd && *gPos != '\n') {
        return *gPos;
    }
    const int c = Get();
    Unget(c);
    return c;
}

// The scanner gives up on a token: the input is closed and the error
// reported, which ends the read.
int Fail(unsigned int code, int line, const char* context) {
    CloseInput();
    ReportReadError(code, line, context);
    return kTokError;
}

// A name or number longer than the token text holds.
int TooLong(std::size_t length) {
    std::string context(gText, length);
    return Fail(kMsgInvalidCharInSymbol, gLine, context.c_str());
}

// An invalid character in or at the start of a name: the collected text, the
// rest of the word, " :" and the first invalid character make the context.
int InvalidSymbol(std::size_t length, int first) {
    std::string context(gText, length);
    if (first >= 0) {
        context += static_cast<char>(first);
    }
    for (int c = Get(); !Is(c, kBlank) && c != -1 && c != ':' && c != ',' && c != ';';
         c = Get()) {
        if (context.size() < kTokenTextSize * 4) {
            context += static_cast<char>(c);
        }
    }
    context += " :";
    if (first >= 0) {
        context += static_cast<char>(first);
    }
    return Fail(kMsgInvalidCharInSymbol, gLine, context.c_str());
}

// Drops characters up to and including the next ";" (the statement of a
// declared new symbol) or the next line feed (a "//" comment). The end of
// the file before it is a syntax error.
bool SkipPast(int stop) {
    for (;;) {
        if (gPushCount == 0) {
            const void* found = std::memchr(gPos, stop, static_cast<std::size_t>(gEnd - gPos));
            const unsigned char* to =
                found != nullptr ? static_cast<const unsigned char*>(found) : gEnd;
            for (const unsigned char* p = gPos; p < to; ++p) {
                gLine += *p == '\n';
            }
            gPos = to;
        }
        const int c = Get();
        if (c == stop) {
            return true;
        }
        if (c == -1) {
            ReportSyntaxError("error: syntax");
            return false;
        }
    }
}

#if defined(__SSE2__)
// The length of the run of identifier characters at p, sixteen bytes at a
// time: "0"-"9", "A"-"Z", "a"-"z" (a letter with its case bit set) and "_",
// which is kIdentChar (bytes of 128 and above are negative as signed ones).
// The input's zeros after its end stop it (see kInputPadding).
inline std::size_t IdentifierRun(const unsigned char* p) {
    std::size_t run = 0;
    for (;;) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + run));
        const __m128i folded = _mm_or_si128(c, _mm_set1_epi8(0x20));
        const __m128i digit = _mm_and_si128(_mm_cmpgt_epi8(c, _mm_set1_epi8('0' - 1)),
                                            _mm_cmplt_epi8(c, _mm_set1_epi8('9' + 1)));
        const __m128i letter = _mm_and_si128(_mm_cmpgt_epi8(folded, _mm_set1_epi8('a' - 1)),
                                             _mm_cmplt_epi8(folded, _mm_set1_epi8('z' + 1)));
        const __m128i underscore = _mm_cmpeq_epi8(c, _mm_set1_epi8('_'));
        const auto in = static_cast<unsigned int>(
            _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(digit, letter), underscore)));
        if (in != 0xFFFFu) {
            return run + static_cast<std::size_t>(__builtin_ctz(~in));
        }
        run += 16;
    }
}
#endif

// Takes the run of bytes of class `bits` that starts at the read position
// into the token text after `*length` characters, while nothing is pushed
// back; false when the run does not fit the token text.
bool TakeRun(unsigned char bits, std::size_t* length) {
    if (gPushCount != 0) {
        return true;
    }
    const unsigned char* p = gPos;
#if defined(__SSE2__)
    if (bits == kIdentChar && p < gEnd) {
        p += IdentifierRun(p);
    }
#endif
    while (p < gEnd && (kTable.classes[*p] & bits) != 0) {
        ++p;
    }
    const auto run = static_cast<std::size_t>(p - gPos);
    if (*length + run > kTokenTextSize) {
        if (*length < kTokenTextSize) {
            std::memcpy(gText + *length, gPos, kTokenTextSize - *length);
        }
        *length = kTokenTextSize;
        return false;
    }
#if defined(__SSE2__)
    // Whole vectors: the token text has room past its end, the input zeros.
    for (std::size_t at = 0; at < run; at += 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(gText + *length + at),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(gPos + at)));
    }
#else
    std::memcpy(gText + *length, gPos, run);
#endif
    *length += run;
    gPos = p;
    return true;
}

// Whether the first `length` characters at `text` are all ones keywords use
// ("A"-"Z" and "_"). A vector's width is read: `text` is the file (with its
// padding) or the token text (with its room past the end). The bytes are
// best read where they were not just written: a load over fresh stores of
// other widths waits for them.
inline bool KeywordCharacters(const char* text, std::size_t length) {
    if (length > kLongestKeyword) {
        return false;
    }
#if defined(__SSE2__)
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const __m128i upper = _mm_and_si128(_mm_cmpgt_epi8(c, _mm_set1_epi8('A' - 1)),
                                        _mm_cmplt_epi8(c, _mm_set1_epi8('Z' + 1)));
    const __m128i in = _mm_or_si128(upper, _mm_cmpeq_epi8(c, _mm_set1_epi8('_')));
    const auto mask = static_cast<unsigned int>(_mm_movemask_epi8(in));
    const unsigned int wanted = (1u << length) - 1;
    return (mask & wanted) == wanted;
#else
    for (std::size_t i = 0; i < length; ++i) {
        if (!Is(static_cast<unsigned char>(text[i]), kKeywordChar)) {
            return false;
        }
    }
    return true;
#endif
}

// A name of `length` characters in the token text, terminated there, and
// also at `text`: a keyword's token, a symbol, or the statement of a
// declared new symbol skipped (kTokError with *skipped set).
int NameToken(const char* text, std::size_t length, bool* skipped) {
    int token;
    if (KeywordCharacters(text, length) && LookupKeyword(text, length, &token)) {
        return token;
    }
    if (NewSymbols() != nullptr) {
        if (const NewSymbol* symbol = FindNewSymbol(gText)) {
            ReadSession* session = CurrentSession();
            if (session != nullptr) {
                session->SetPlace(gToken.start, gToken.line);
            }
            ShowWarning(kMsgNewSymbolNotSupported, gLine, symbol->self);
            *skipped = true;
            if (SkipPast(';') && session != nullptr) {
                session->Keep(gToken.start, gPos, gToken.line);
            }
            return kTokError;
        }
    }
    gToken.text = gText;
    gToken.length = length;
    return kTokSymbol;
}

// name: identifier start, then identifier characters.
int Identifier(int c, bool* skipped) {
    std::size_t length = 0;
    gText[length++] = static_cast<char>(c);
    for (;;) {
        if (!TakeRun(kIdentChar, &length)) {
            return TooLong(length);
        }
        c = Peek();
        if (!Is(c, kIdentChar)) {
            break;
        }
        Get();
        if (length == kTokenTextSize) {
            return TooLong(length);
        }
        gText[length++] = static_cast<char>(c);
    }
    if (c == -1 || Is(c, kInvalid)) {
        Get();
        return InvalidSymbol(length, c);
    }
    gText[length] = '\0';
    return NameToken(gText, length, skipped);
}

// Leaves the read position at `after`, the end of a name or number, as
// Peek would leave it: a line feed there is read and pushed back, so that it
// is counted at once.
inline void EndTokenAt(const unsigned char* after) {
    gPos = after;
    if (*after == '\n') {
        Get();
        Unget('\n');
    }
}

#if defined(__SSE2__)
// Identifier for a name that starts at `start` in the file, the read
// position after its first character and nothing pushed back: the name is
// measured and copied a vector at a time. What the general way would do
// differently (a name too long, or one the file's end or an invalid
// character ends) is left to it.
int IdentifierAt(const unsigned char* start, bool* skipped) {
    const std::size_t length = IdentifierRun(start);
    const unsigned char* const after = start + length;
    if (length > kTokenTextSize || after >= gEnd || (kTable.classes[*after] & kInvalid) != 0) {
        return Identifier(*start, skipped);
    }
    for (std::size_t at = 0; at < length; at += 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(gText + at),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(start + at)));
    }
    gText[length] = '\0';
    EndTokenAt(after);
    return NameToken(reinterpret_cast<const char*>(start), length, skipped);
}
#endif

// Collects a run of digits after `length` characters of token text; false
// when the run would overflow the token text. `c` is the character after
// it, left unread.
bool Digits(std::size_t* length, int* c) {
    for (;;) {
        if (!TakeRun(kDigit, length)) {
            return false;
        }
        *c = Peek();
        if (!Is(*c, kDigit)) {
            return true;
        }
        Get();
        if (*length == kTokenTextSize) {
            return false;
        }
        gText[(*length)++] = static_cast<char>(*c);
    }
}

double ParseDouble(std::size_t length);

// Converts the token text of a number. Plain decimals of up to 15 digits
// ("0.01", "655.35") are an exact integer divided by an exact power of ten,
// which IEEE division rounds correctly; everything else goes to from_chars.
double ToDouble(std::size_t length) {
    std::uint64_t mantissa = 0;
    int digits = 0;
    int decimals = 0;
    bool point = false;
    std::size_t i = 0;
    for (; i < length; ++i) {
        const char c = gText[i];
        if (c >= '0' && c <= '9') {
            mantissa = mantissa * 10 + static_cast<unsigned>(c - '0');
            digits += mantissa != 0;
            decimals += point;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (i == length && digits <= 15 && decimals <= 22) {
        return static_cast<double>(mantissa) / kExactPowersOfTen[decimals];
    }
    return ParseDouble(length);
}

double ParseDouble(std::size_t length) {
    double value = 0.0;
    const auto result = std::from_chars(gText, gText + length, value);
    if (result.ec != std::errc()) {  // out of range: as the C library rounds it
        gText[length] = '\0';
        value = std::strtod(gText, nullptr);
    }
    return value;
}

// Number: digits, then either nothing more (an integer) or a point with
// optional digits and/or an exponent (a floating-point number).
int Number(int c) {
    std::size_t length = 0;
    gText[length++] = static_cast<char>(c);
    if (!Digits(&length, &c)) {
        return TooLong(length);
    }
    if (c != '.' && c != 'E' && c != 'e') {
        std::uint64_t value = 0;
        bool huge = false;
        for (std::size_t i = 0; i < length; ++i) {
            const unsigned digit = static_cast<unsigned>(gText[i] - '0');
            if (value > (UINT64_MAX - digit) / 10) {
                huge = true;
                break;
            }
            value = value * 10 + digit;
        }
        gToken.integer = value;
        gToken.huge = huge;
        gToken.number = huge ? ToDouble(length) : static_cast<double>(value);
        return value > 32767 || huge ? kTokLong : kTokInteger;
    }
    if (c == '.') {
        Get();
        if (length >= kTokenTextSize) {  // the digits filled the token text
            return TooLong(length);
        }
        gText[length++] = '.';
        if (!Digits(&length, &c)) {
            return TooLong(length);
        }
    }
    if (c == 'E' || c == 'e') {
        Get();
        if (length + 2 >= kTokenTextSize) {
            return TooLong(length);
        }
        gText[length++] = static_cast<char>(c);
        c = Get();
        if (c == '+' || c == '-') {
            gText[length++] = static_cast<char>(c);
            c = Get();
        }
        if (!Is(c, kDigit)) {
            return kTokError;  // "1e": the parser reports the syntax error
        }
        gText[length++] = static_cast<char>(c);
        if (!Digits(&length, &c)) {
            return TooLong(length);
        }
    }
    gToken.number = ToDouble(length);
    gToken.huge = false;
    gToken.integer = 0;
    return kTokFloat;
}

// Takes the run of digits at p into *value (times ten per digit, plus the
// digit; past 19 digits it wraps) and returns where the run ends. The
// input's zeros after its end stop it.
inline const unsigned char* DigitRun(const unsigned char* p, std::uint64_t* value) {
    std::uint64_t number = *value;
    unsigned int digit;
    while ((digit = static_cast<unsigned int>(*p) - '0') < 10) {
        number = number * 10 + digit;
        ++p;
    }
    *value = number;
    return p;
}

// Number for one that starts at `start` in the file, the read position after
// its first digit and nothing pushed back: digits, or digits, a point and
// digits, read in one pass. Anything else (an exponent, more than 19 digits
// of an integer, a number too long for the token text, the file's end) is
// left to Number.
int NumberAt(const unsigned char* start) {
    std::uint64_t value = 0;
    const unsigned char* p = DigitRun(start, &value);
    const bool point = *p == '.';
    if (point) {
        do {
            ++p;
        } while (static_cast<unsigned int>(*p) - '0' < 10);
    }
    const auto length = static_cast<std::size_t>(p - start);
    if (p >= gEnd || *p == 'E' || *p == 'e' || length > (point ? kTokenTextSize : 19)) {
        return Number(*start);
    }
    for (std::size_t at = 0; at < length; at += 16) {  // the token text has room past its end
        std::memcpy(gText + at, start + at, 16);
    }
    EndTokenAt(p);
    gToken.huge = false;
    if (point) {
        gToken.number = ToDouble(length);
        gToken.integer = 0;
        return kTokFloat;
    }
    gToken.integer = value;
    gToken.number = static_cast<double>(value);
    return value > 32767 ? kTokLong : kTokInteger;
}

// The end of the run of a string's characters at p (up to a double quote,
// a backslash or the file's end), counting its line feeds into *lines.
inline const unsigned char* StringRun(const unsigned char* p, int* lines) {
#if defined(__SSE2__)
    // Sixteen bytes at a time: the input's zeros after its end may be read,
    // and hold no quote, backslash or line feed.
    for (; p < gEnd; p += 16) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const auto stops = static_cast<unsigned int>(_mm_movemask_epi8(_mm_or_si128(
            _mm_cmpeq_epi8(c, _mm_set1_epi8('"')), _mm_cmpeq_epi8(c, _mm_set1_epi8('\\')))));
        const auto feeds =
            static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(c, _mm_set1_epi8('\n'))));
        if (stops != 0) {
            const auto run = static_cast<unsigned int>(__builtin_ctz(stops));
            *lines += __builtin_popcount(feeds & ((1u << run) - 1));
            return p + run;
        }
        if (feeds != 0) {  // most runs of 16 have none: no count to take
            *lines += __builtin_popcount(feeds);
        }
    }
    return gEnd;  // none before the end
#else
    while (p < gEnd && *p != '"' && *p != '\\') {
        *lines += *p == '\n';
        ++p;
    }
    return p;
#endif
}

// String: up to the next double quote; a backslash before a double quote
// stands for the quote, a backslash before anything else is kept.
int String() {
    gString.clear();
    try {
        for (;;) {
            if (gPushCount == 0) {
                int lines = 0;
                const unsigned char* p = StringRun(gPos, &lines);
                gLine += lines;
                gString.append(reinterpret_cast<const char*>(gPos),
                               static_cast<std::size_t>(p - gPos));
                gPos = p;
            }
            const int c = Get();
            if (c == '"') {
                break;
            }
            if (c == -1) {
                ReportSyntaxError("error: syntax");
                return kTokError;
            }
            if (c == '\\') {
                const int next = Get();
                if (next == '"') {
                    gString += '"';
                    continue;
                }
                Unget(next);
            }
            gString += static_cast<char>(c);
        }
    } catch (const std::bad_alloc&) {
        std::string().swap(gString);
        return Fail(kMsgNotEnoughMemory, -1, nullptr);
    }
    gToken.text = gString.c_str();
    gToken.length = gString.size();
    return kTokString;
}

// digits ['.' digits] at *p, its value computed as the scanner computes it:
// the digits from the first that is not 0 on (the mantissa's own) at most
// 15, so that the mantissa over a power of ten rounds correctly. More than
// 19 digits in all (which the mantissa might not hold) are left to the
// scanner. Moves *p past it; false when there is none or it is left.
inline bool Decimal(const unsigned char** p, double* magnitude) {
    std::uint64_t mantissa = 0;
    const unsigned char* at = DigitRun(*p, &mantissa);
    if (at == *p) {
        return false;
    }
    std::size_t digits = static_cast<std::size_t>(at - *p);
    std::size_t decimals = 0;
    if (*at == '.') {
        const unsigned char* first = ++at;
        at = DigitRun(first, &mantissa);
        decimals = static_cast<std::size_t>(at - first);
        digits += decimals;
    }
    constexpr std::uint64_t kSixteenDigits = 1000000000000000u;
    if (digits > 19 || mantissa >= kSixteenDigits || decimals > 22) {
        return false;
    }
    // A division takes long: an integer (exact as a double here) needs none.
    *magnitude = decimals == 0 ? static_cast<double>(mantissa)
                               : static_cast<double>(mantissa) / kExactPowersOfTen[decimals];
    *p = at;
    return true;
}

// A string's text after its opening quote at *p, up to the closing one,
// when no backslash, line feed or zero comes first (the input's zeros after
// its end stop it); *p is then moved past the closing quote.
inline bool Quoted(const unsigned char** p, const char** text, std::size_t* length) {
    const unsigned char* end = *p;
#if defined(__SSE2__)
    // Sixteen bytes at a time: the padding's zeros stop it before its end.
    for (;; end += 16) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(end));
        const __m128i stops =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(c, _mm_set1_epi8('"')),
                                      _mm_cmpeq_epi8(c, _mm_set1_epi8('\\'))),
                         _mm_or_si128(_mm_cmpeq_epi8(c, _mm_set1_epi8('\n')),
                                      _mm_cmpeq_epi8(c, _mm_setzero_si128())));
        const auto mask = static_cast<unsigned int>(_mm_movemask_epi8(stops));
        if (mask != 0) {
            end += __builtin_ctz(mask);
            break;
        }
    }
#else
    while (*end != '"' && *end != '\\' && *end != '\n' && *end != '\0') {
        ++end;
    }
#endif
    if (*end != '"') {
        return false;
    }
    *text = reinterpret_cast<const char*>(*p);
    *length = static_cast<std::size_t>(end - *p);
    *p = end + 1;
    return true;
}

// The plain forms that ScanSignalLayout reads; each takes its part at `p`
// and moves `p` past it, or returns false.
class PlainReader {
public:
    // The bytes from p on, which kInputPadding zeros follow: a zero stops
    // every loop here, so none asks for the end.
    explicit PlainReader(const unsigned char* p) : p_(p) {}
    const unsigned char* position() const { return p_; }
    void Skip(std::size_t count) { p_ += count; }

    void Blanks() {
        if (*p_ > ' ') {  // the usual case: none
            return;
        }
        while (*p_ == ' ' || *p_ == '\t') {
            ++p_;
        }
    }
    bool Char(char c) {
        Blanks();
        if (*p_ == static_cast<unsigned char>(c)) {
            ++p_;
            return true;
        }
        return false;
    }
    // At most 18 digits, their value at most `maximum`; with `blankFirst`,
    // after blanks.
    template <class T>
    bool Unsigned(std::uint64_t maximum, T* value, bool blankFirst = true) {
        if (blankFirst) {
            Blanks();
        }
        const unsigned char* start = p_;
        std::uint64_t number = 0;
        p_ = DigitRun(p_, &number);
        if (p_ == start || p_ - start > 18 || number > maximum || EndsBadly()) {
            return false;
        }
        *value = static_cast<T>(number);
        return true;
    }
    // ['-' | '+'] digits ['.' digits], read exactly as the scanner would (see
    // Decimal).
    bool Number(double* value) {
        Blanks();
        bool negative = false;
        if (*p_ == '-' || *p_ == '+') {
            negative = *p_ == '-';
            ++p_;
            Blanks();
        }
        const unsigned char* start = p_;
        double magnitude;
        if (!Decimal(&p_, &magnitude) || p_ - start > kTokenTextSize || EndsBadly()) {
            return false;
        }
        *value = negative ? -magnitude : magnitude;
        return true;
    }
    bool Text(const char** text, std::size_t* length) {
        return Char('"') && Quoted(&p_, text, length);
    }

private:
    // A number run into a letter, a point or an exponent is left to the
    // scanner, which knows what to make of it.
    bool EndsBadly() const {
        return (kTable.classes[*p_] & (kIdentChar | kInvalid)) != 0 || *p_ == '.';
    }

    const unsigned char* p_;
};

}  // namespace

namespace {

// The layout as the writer spaces it, " 7|16@0+ (0.01,0) [0|655.35] "km/h"",
// read straight on from p (after the ":"); false at the first other byte.
// Its numbers are read as PlainReader reads them.
class CanonicalReader {
public:
    explicit CanonicalReader(const unsigned char* p) : p_(p) {}
    const unsigned char* position() const { return p_; }

    bool Read(SignalLayout* layout) {
        unsigned int order = 0;
        const bool read =
            Is(' ') && Unsigned(&layout->startBit) && Is('|') && Unsigned(&layout->length) &&
            Is('@') && (order = static_cast<unsigned int>(*p_) - '0') <= 1 && Skip() &&
            (*p_ == '+' || *p_ == '-') && Sign(&layout->isSigned) && Is(' ') && Is('(') &&
            Number(&layout->factor) && Is(',') && Number(&layout->offset) && Is(')') &&
            Is(' ') && Is('[') && Number(&layout->minimum) && Is('|') &&
            Number(&layout->maximum) && Is(']') && Is(' ') && Is('"') && Unit(layout);
        layout->order = order;
        return read;
    }

private:
    bool Is(char c) {
        if (*p_ != static_cast<unsigned char>(c)) {
            return false;
        }
        ++p_;
        return true;
    }
    bool Skip() {
        ++p_;
        return true;
    }
    bool Sign(bool* isSigned) {
        *isSigned = *p_++ == '-';
        return true;
    }
    // At most five digits, up to 0xFFFF.
    bool Unsigned(unsigned int* value) {
        const unsigned char* start = p_;
        std::uint64_t number = 0;
        p_ = DigitRun(p_, &number);
        if (p_ == start || p_ - start > 5 || number > 0xFFFF) {
            return false;
        }
        *value = static_cast<unsigned int>(number);
        return true;
    }
    // ['-'] digits ['.' digits]; the byte after it is one of ",)|]" here,
    // which ends a number well.
    bool Number(double* value) {
        const bool negative = *p_ == '-';
        p_ += negative;
        double magnitude;
        if (!Decimal(&p_, &magnitude)) {
            return false;
        }
        *value = negative ? -magnitude : magnitude;
        return true;
    }
    bool Unit(SignalLayout* layout) { return Quoted(&p_, &layout->unit, &layout->unitLength); }

    const unsigned char* p_;
};

// The layout after a signal line's ":" in its plain form (see
// ScanSignalLayout), from `in` on.
bool ReadLayout(PlainReader& in, SignalLayout* layout) {
    CanonicalReader canonical(in.position());
    if (canonical.Read(layout)) {
        in.Skip(static_cast<std::size_t>(canonical.position() - in.position()));
        return true;
    }
    unsigned int sign = 0;
    const bool plain =
        in.Unsigned(0xFFFF, &layout->startBit) && in.Char('|') &&
        in.Unsigned(0xFFFF, &layout->length) && in.Char('@') && in.Unsigned(1, &layout->order) &&
        ((sign = in.Char('-') ? 1 : 0) == 1 || in.Char('+')) && in.Char('(') &&
        in.Number(&layout->factor) && in.Char(',') && in.Number(&layout->offset) &&
        in.Char(')') && in.Char('[') && in.Number(&layout->minimum) && in.Char('|') &&
        in.Number(&layout->maximum) && in.Char(']') && in.Text(&layout->unit, &layout->unitLength);
    layout->isSigned = sign == 1;
    return plain;
}

// A name at `p` that the scanner would give as a symbol token and that a
// blank, a tab or `end` (":", "," or a line feed) ends, for a "," a line
// feed too; its length, or 0.
std::size_t PlainName(const unsigned char* p, unsigned char end) {
    if ((kTable.classes[*p] & kIdentStart) == 0) {
        return 0;
    }
#if defined(__SSE2__)
    const std::size_t length = IdentifierRun(p);
#else
    std::size_t length = 1;
    while ((kTable.classes[p[length]] & kIdentChar) != 0) {  // the input's zeros stop it
        ++length;
    }
#endif
    const unsigned char after = p[length];
    if (length > kTokenTextSize ||
        (after != ' ' && after != '\t' && after != end && (end != ',' || after != '\n'))) {
        return 0;
    }
    const char* const text = reinterpret_cast<const char*>(p);
    int token;
    if (KeywordCharacters(text, length) && LookupKeyword(text, length, &token)) {
        return 0;
    }
    if (NewSymbols() != nullptr) {
        std::memcpy(gText, text, length);
        gText[length] = '\0';
        if (FindNewSymbol(gText) != nullptr) {
            return 0;
        }
    }
    return length;
}

// A plain name (see PlainName) after blanks, taken into *name; false when
// there is none.
inline bool TakeName(PlainReader& in, unsigned char end, PlainText* name) {
    in.Blanks();
    const unsigned char* start = in.position();
    name->text = reinterpret_cast<const char*>(start);
    name->length = PlainName(start, end);
    in.Skip(name->length);
    return name->length != 0;
}

// What `read` reads from the read position in a plain form (see
// PlainReader), when nothing is pushed back: the position is then moved past
// it and true returned; else nothing is read.
template <class Read>
bool ReadPlainly(Read read) {
    if (gPushCount != 0) {
        return false;
    }
    PlainReader in(gPos);
    if (!read(in)) {
        return false;
    }
    gPos = in.position();
    return true;
}

// What a statement is about, in its plain form: "BU_", "BO_", "SG_" or "EV_"
// and what it names, or nothing (the network), from `in` on.
bool ReadObject(PlainReader& in, ObjectRef* object) {
    in.Blanks();
    object->object = 0;
    object->id = 0;
    object->item = PlainText{nullptr, 0};
    const unsigned char* word = in.position();
    if ((kTable.classes[*word] & kIdentStart) == 0) {
        return true;
    }
    // The keyword, a blank or tab after it; any other word is left to the
    // token reading.
    static constexpr struct {
        char text[4];
        int token;
    } kObjects[] = {{"BO_", kTokBotschaft},
                    {"SG_", kTokUnterbotschaft},
                    {"BU_", kTokBusteilnehmer},
                    {"EV_", kTokEnvvar}};
    for (const auto& keyword : kObjects) {
        if (std::memcmp(word, keyword.text, 3) == 0) {
            object->object = keyword.token;
        }
    }
    if (object->object == 0 || (word[3] != ' ' && word[3] != '\t')) {
        return false;
    }
    in.Skip(3);
    const bool id = object->object == kTokBotschaft || object->object == kTokUnterbotschaft;
    if (id && !in.Unsigned(0xFFFFFFFFu, &object->id)) {
        return false;
    }
    if (object->object != kTokBotschaft) {
        if (!TakeName(in, ' ', &object->item)) {
            return false;
        }
    }
    return true;
}

// The rest of an attribute value statement in its plain form (see
// ScanAttributeValue), from `in` on.
bool ReadAttributeValue(PlainReader& in, AttributeValue* value) {
    // The attribute's name: a string without backslash, line feed or zero.
    // Then the object, a plain number and ';'.
    return in.Text(&value->name.text, &value->name.length) && ReadObject(in, &value->of) &&
           in.Number(&value->number) && in.Char(';');
}

// The rest of a comment statement in its plain form (see ScanComment).
bool ReadComment(PlainReader& in, Comment* comment) {
    return ReadObject(in, &comment->of) && in.Text(&comment->text.text, &comment->text.length) &&
           in.Char(';');
}

// Value descriptions in their plain form (see ScanValueDescriptions).
bool ReadValueDescriptions(PlainReader& in, ValueDescription* values, std::size_t most,
                           std::size_t* count) {
    for (*count = 0; !in.Char(';'); ++*count) {
        if (*count == most) {
            return false;
        }
        ValueDescription& value = values[*count];
        value.negative = in.Char('-');
        if (!in.Unsigned(kMostPlainValue, &value.magnitude, false) ||
            !in.Text(&value.text.text, &value.text.length)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool ScanSignalLayout(SignalLayout* layout) {
    return ReadPlainly([layout](PlainReader& in) { return ReadLayout(in, layout); });
}

bool ScanSignalHead(SignalHead* head) {
    return ReadPlainly([head](PlainReader& in) {
        head->mode = PlainText{nullptr, 0};
        return TakeName(in, ':', &head->name) &&
               (in.Char(':') || (TakeName(in, ':', &head->mode) && in.Char(':'))) &&
               ReadLayout(in, &head->layout);
    });
}

bool ScanMessageHead(MessageHead* head) {
    return ReadPlainly([head](PlainReader& in) {
        return in.Unsigned(0xFFFFFFFFu, &head->id) && TakeName(in, ':', &head->name) &&
               in.Char(':') && in.Unsigned(0xFFFF, &head->dlc) &&
               TakeName(in, '\n', &head->transmitter);
    });
}

bool ScanAttributeValue(AttributeValue* value) {
    return ReadPlainly([value](PlainReader& in) { return ReadAttributeValue(in, value); });
}

bool ScanComment(Comment* comment) {
    return ReadPlainly([comment](PlainReader& in) { return ReadComment(in, comment); });
}

bool ScanValueDescriptions(ValueDescription* values, std::size_t most, std::size_t* count) {
    return ReadPlainly([values, most, count](PlainReader& in) {
        return ReadValueDescriptions(in, values, most, count);
    });
}

std::size_t ScanReceivers(PlainText* names, std::size_t most) {
    if (gPushCount != 0) {
        return 0;
    }
    PlainReader in(gPos);
    std::size_t count = 0;
    const unsigned char* after = gPos;  // after the last name taken
    while (count < most && (count == 0 || in.Char(',')) && TakeName(in, ',', &names[count])) {
        ++count;
        after = in.position();
    }
    gPos = after;
    return count;
}

namespace {

// The statement keywords most lines begin with, three or four characters and
// a blank after them: taken at p without measuring the name or looking it
// up (a keyword goes before any declared new symbol of its text). 0 for
// anything else.
inline int CommonKeyword(const unsigned char* p) {
    struct Common {
        char text[5];
        int token;
    };
    static constexpr Common kCommon[] = {{"SG_ ", kTokUnterbotschaft},
                                         {"BA_ ", kTokUserAttribute},
                                         {"BO_ ", kTokBotschaft},
                                         {"CM_ ", kTokComment}};
    for (const Common& common : kCommon) {
        if (std::memcmp(p, common.text, 4) == 0) {
            std::memcpy(gText, p, 3);
            gText[3] = '\0';
            gPos = p + 3;
            return common.token;
        }
    }
    if (std::memcmp(p, "VAL_ ", 5) == 0) {
        std::memcpy(gText, p, 4);
        gText[4] = '\0';
        gPos = p + 4;
        return kTokSignalValues;
    }
    return 0;
}

}  // namespace

void StartScanner() {
    gPos = InputData();
    gEnd = gPos + InputSize();
    gPushCount = 0;
    gLine = 0;
    gToken = TokenValue();
}

int ReadChar() {
    return Get();
}

void UnreadChar(int c) {
    Unget(c);
}

int CurrentLine() {
    return gLine;
}

const unsigned char* ScanPosition() {
    return gPos;
}

const TokenValue& CurrentToken() {
    return gToken;
}

void ReportSyntaxError(const char* text) {
    CloseInput();
    if (!IsInputOpen()) {  // held open by a read that goes on
        gPos = gEnd = nullptr;
    }
    ReportReadError(kMsgSyntax, gLine, text);
}

int NextToken() {
    for (;;) {
        // The common case, nothing pushed back: blanks, then the first
        // character of the token straight from the file.
        if (gPushCount == 0) {
            const unsigned char* p = gPos;
            const unsigned char* const end = gEnd;
            int lines = 0;
            unsigned char classes = 0;
            while (p < end && ((classes = kTable.classes[*p]) & kBlank) != 0) {
                lines += *p == '\n';
                ++p;
            }
            gLine += lines;
            gPos = p;
            if (p == end) {
                return kTokEnd;
            }
            gToken.line = gLine;
            gToken.start = p;
            if ((classes & (kPunct | kIdentStart | kDigit)) != 0) {
                gPos = p + 1;
                if ((classes & kPunct) != 0) {
                    return *p;
                }
                if ((classes & kDigit) != 0) {
                    return NumberAt(p);
                }
                if ((classes & kKeywordChar) != 0) {
                    if (const int keyword = CommonKeyword(p)) {  // the input's zeros follow it
                        return keyword;
                    }
                }
                bool skipped = false;
#if defined(__SSE2__)
                const int token = IdentifierAt(p, &skipped);
#else
                const int token = Identifier(*p, &skipped);
#endif
                if (skipped) {
                    continue;
                }
                return token;
            }
        }
        int c = Get();
        if (c == -1) {
            return kTokEnd;
        }
        if (c == '/') {
            const int next = Get();
            if (next == '/') {
                if (!SkipPast('\n')) {
                    return kTokError;
                }
                continue;
            }
            Unget(next);
        }
        if (Is(c, kBlank)) {
            continue;
        }
        gToken.line = gLine;
        gToken.start = gPos - 1;
        if (Is(c, kIdentStart)) {
            bool skipped = false;
            const int token = Identifier(c, &skipped);
            if (skipped) {
                continue;
            }
            return token;
        }
        if (Is(c, kDigit)) {
            return Number(c);
        }
        if (c == '"') {
            return String();
        }
        if (Is(c, kInvalid)) {
            return InvalidSymbol(0, c);
        }
        return c;
    }
}

}  // namespace tavlo::dbfile
