// Apple Event parameters on tabletctl's command line, and their values in its output.
//
//   parameter   KEYWORD:TYPE:VALUE, keyword and type four-character codes
//               (RequestSyntax.h), the value read by the type:
//                 type enum keyw prop   a four-character code
//                 shor long magn comp   a number (16-bit, 32-bit, unsigned 32-bit, 64-bit)
//                 bool                  true, false, 1 or 0
//                 TEXT utf8             the text as it is
//                 any other type        bytes in hexadecimal
//               e.g. kocl:type:Tblt, ----:long:2
#pragma once

#include "Client/CKeltoClient.h"

#include <nlohmann/json.hpp>

#include <string>

namespace AppleEventSyntax
{
CKeltoClient::SAppleEventParameter ParseParameter(const std::string& text_I);

// A parameter's value as its type reads it: a number, a code, a text; the bytes in
// hexadecimal for other types or data of the wrong size.
nlohmann::ordered_json Value(const CKeltoClient::SAppleEventParameter& parameter_I);
} // namespace AppleEventSyntax
