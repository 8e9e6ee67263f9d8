// manager/edit.cpp: the write manager's edits of attribute values, value
// descriptions, comments, user data and view filters.
