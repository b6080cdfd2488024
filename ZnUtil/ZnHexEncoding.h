// Hexadecimal text form of byte arrays: lower case out, upper case in.
#ifndef ZNUTIL_ZNHEXENCODING_H
#define ZNUTIL_ZNHEXENCODING_H

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnString.h"

/// Converts between byte arrays and hexadecimal text, with static operations only; the class
/// is an object only so that it can be named like the library's other classes.
///
/// The two directions do not match: toHex writes lower-case digits, and fromHex reads digits
/// 0 to 9 and upper-case A to F only. Other characters are not rejected and give wrong values,
/// so a round trip through both keeps only texts of digits and upper-case letters, which come
/// back in lower case.
/// Thread safety: no state; any thread may call at any time.
class ZnHexEncoding : public ZnObject
{
public:
    ZnHexEncoding();

    /// The byte value of the two characters at \p twoDigits, high digit first. A character
    /// '0' to '9' counts its digit and any other character c counts c - '7', which is right
    /// for 'A' to 'F' only.
    /// \param twoDigits two characters; the second may be the terminator of a text.
    static char fromHex(char* twoDigits);

    /// The bytes of the hexadecimal text \p text, one from each pair of characters by the rule
    /// of fromHex(char*).
    /// \param text the digits; a nil string counts as empty. An odd length is not meant to be
    /// passed: its last character is ignored.
    /// \return a new array of length() / 2 bytes.
    static ZnHandle<ZnByteArray> fromHex(ZnString text);

    /// The bytes of \p bytes as two lower-case hexadecimal digits each.
    /// \param bytes the bytes; a nil handle counts as empty.
    /// \return a new string of twice the array's length.
    /// \throws ZnHandle<ZnException> when the array is too long for a string of twice its size.
    static ZnString toHex(ZnHandle<ZnByteArray> bytes);
};

#endif // ZNUTIL_ZNHEXENCODING_H
