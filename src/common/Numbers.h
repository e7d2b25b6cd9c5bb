#pragma once

/// The run-time number rules. Every conversion of the library goes through these functions, so that a tie,
/// an overflow or the decimal text of a number comes out alike in every driver and on every platform.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/Variant.h>

namespace ptzd {

/// Nearest integer, ties to even. Raises 6 (overflow) outside the target's range and for NaN and infinity.
std::int32_t ToInt32(double value);
std::int16_t ToInt16(double value);
std::uint8_t ToByte(double value);

/// Nearest single, never -0. Raises 6 beyond the range of a single and for NaN and infinity.
float ToSingle(double value);

/// The number a whole text spells: a sign, decimal digits with ".", an exponent with E or D, or "&H" and "&O"
/// with hexadecimal and octal digits (which wrap at 16, then 32 bits, as signed numbers). White space around
/// it is skipped. Raises 13 (type mismatch) for any other text, 6 beyond the range of a double.
double NumberFromText(std::string_view text);

/// A variant as a number: empty is 0, True is -1, a text is what it spells. Raises 13 or 6 as above, 13 for
/// bytes.
double ToDouble(const Variant& value);

/// A variant as a 32-bit or 16-bit integer (rounded to nearest, ties to even). Raises 13 or 6 as above.
std::int32_t ToInt32(const Variant& value);
std::int16_t ToInt16(const Variant& value);

/// A variant as a Boolean: any number but 0 is True; "True" and "False" in any case, or a number, as text.
/// Raises 13 for any other text.
bool ToBoolean(const Variant& value);

/// A variant as text: numbers as `Text` writes them, "True" or "False", empty as the empty text. Raises 13
/// for bytes.
std::string ToText(const Variant& value);

/// Nearest number with so many decimals, ties to even.
double Round(double value, int decimals);

/// The greatest whole number not above the value. Raises 6 for NaN and infinity.
double Int(double value);
/// The nearest quarter, ties up, in single precision. Raises 6 for NaN and infinity.
float NearestQuarter(double value);

/// The number at the start of a text, 0 if there is none. Blanks, tabs and line feeds are skipped wherever
/// they stand; an exponent may be written with E or D. What follows the number is ignored. Raises 6 beyond
/// the range of a double.
double Val(std::string_view text);

/// Decimal text: at most 7 significant digits of a single and 15 of a double, no trailing zeros, no plus
/// sign, never "-0", always ".", "1E+07" and "1E-05" where plain digits would not do. Raises 6 for NaN and
/// infinity.
std::string Text(std::int32_t value);
std::string Text(float value);
std::string Text(double value);

/// Upper-case hexadecimal digits of the two's complement, without leading zeros.
std::string Hex(std::int32_t value);

/// The low 8 bits as two upper-case hexadecimal digits, the low 16 as four.
std::string Hex2(std::int32_t value);
std::string Hex4(std::int32_t value);
/// Two digits for each, blanks between: "FF 01 00".
std::string HexBytes(std::span<const std::uint8_t> bytes);

/// The signed 16-bit number that hexadecimal digits in either case spell: "FDAC" is -596. Raises 13 (type
/// mismatch) for anything but digits and for none, 6 beyond 16 bits.
std::int16_t Int16FromHex(std::string_view digits);

}  // namespace ptzd
