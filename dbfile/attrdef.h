// dbfile/attrdef.h: defining attributes and their defaults while a database
// file is read. Used by the reader on the definition list of the database
// being read; errors go through the reader's reporting and may end the read.
#ifndef TAVLOMS_DBFILE_ATTRDEF_H
#define TAVLOMS_DBFILE_ATTRDEF_H

#include "tavloms/records.h"

namespace tavlo::dbfile {

// The range of a definition as the file gives it: two numbers for INT,
// FLOAT and HEX; for ENUM, `minimum.text` holds the enumeration texts.
struct AttrRange {
    tavlo_attr_value_t minimum;
    double maximum;
};

// Appends a definition of `name` to the list (tabs in the name become
// blanks). STRING and ENUM get an empty default text; ENUM takes the range's
// text as its enumeration texts; INT, FLOAT and HEX take minimum and maximum,
// and the minimum as default. Returns 1. A name that is already defined
// closes the input and reports error 19 with the name and line, and returns
// 0 if the read goes on. The ENUM text becomes the definition's only when 1
// is returned.
int DefineAttribute(attr_def** list, const char* name, unsigned int objectType,
                    unsigned int valueType, const AttrRange& range, int line);

// Sets the default of the definition of `name` (tabs in the name become
// blanks): STRING and ENUM take value.text (the old default text is
// released), INT, FLOAT and HEX the number; isText says which value holds.
// A value of the other kind leaves the default as it was (a text is
// released). Returns 1. An unknown name closes the input and reports error
// 20 with the name and line, and returns 0 if the read goes on; the text
// is then still the caller's.
int SetAttributeDefault(attr_def* list, const char* name, tavlo_attr_value_t value, bool isText,
                        int line);

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_ATTRDEF_H
