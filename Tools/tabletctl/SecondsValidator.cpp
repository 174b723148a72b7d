#include "Tools/tabletctl/SecondsValidator.h"

#include <cmath>
#include <string>

CLI::Validator SecondsValidator(bool zeroAllowed_I)
{
    const std::string wanted = zeroAllowed_I ? "0 or more" : "more than 0";
    return CLI::Validator(
        [zeroAllowed_I, wanted](std::string& text_IO) -> std::string
        {
            double value = 0;
            const bool number = CLI::detail::lexical_cast(text_IO, value) && std::isfinite(value);
            if (number && (value > 0 || (zeroAllowed_I && value == 0)))
            {
                return std::string();
            }
            return "'" + text_IO + "' is not a number of seconds " + wanted;
        },
        "SECONDS");
}
