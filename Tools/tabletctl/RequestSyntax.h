// How tabletctl reads the parts of a request from its command line: commands, identifiers,
// addressing modes, key chains, request data and four-character codes. Names or numbers
// are accepted everywhere; a bad word throws CCommandError naming it.
//
//   command     ECommandGet, Get, get, or its number (1)
//   identifier  EObjectIDTablet, ObjectIDTablet, Tablet (when only one group has it), or a
//               number (508); case does not matter
//   mode        EAddrModeByID, ByID, ID, or a number; All stands for EAddrModeAllSubordinate
//   key         IDENTIFIER[@MODE][=REFERENCE]; the reference is a number or an identifier
//               (Count=Tablet), or with @String any text; mode EAddrModeByIndex and
//               reference 0 when left out
//   data        TYPE:VALUE with TYPE one of
//                 u8 u16 u32 u64 i8 i16 i32 i64  a number, host byte order
//                 bool                           true, false, 1 or 0 (one byte)
//                 string                         the text and a terminating 0
//                 hex                            bytes in hexadecimal, spaces allowed
//                 integer                        a settings integer (archive)
//                 settings                       JSON settings text, a map or an array
//                                                (archive)
//                 file                           the bytes of a file
//   code        four characters ('core', Tblt, ****) or a hexadecimal number (0x636F7265)
//
// Numbers are decimal, or hexadecimal with 0x.
#pragma once

#include "Client/CKeltoClient.h"

#include <cstdint>
#include <string>
#include <vector>

namespace RequestSyntax
{
ECommand ParseCommand(const std::string& text_I);
EEventIdentifier ParseIdentifier(const std::string& text_I);
EAddressingMode ParseMode(const std::string& text_I);
CKeltoClient::SKey ParseKey(const std::string& text_I);
std::vector<unsigned char> ParseData(const std::string& text_I);
std::uint32_t ParseFourCharCode(const std::string& text_I);
// An unsigned number no larger than max_I.
std::uint64_t ParseNumber(const std::string& text_I, std::uint64_t max_I);

// The name of a value for output: "EParameterIDCount", or the number for a value without
// a name (508).
std::string IdentifierName(EEventIdentifier identifier_I);
std::string CommandName(ECommand command_I);
std::string ModeName(EAddressingMode mode_I);
// 'core' as the text core; a code with characters outside printable ASCII as 0x....
std::string FourCharCodeText(std::uint32_t code_I);
} // namespace RequestSyntax
