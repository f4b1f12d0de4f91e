// The sensor tags' 10-bit temperature code, both ways.
#pragma once

#include <stdint.h>

namespace uhf {

// Temperature in degrees Celsius to the tag's 10-bit code: integer part in
// bits 9..2 (two's complement, wrapping outside -128..127), quarter degrees
// in bits 1..0, rounded down. NaN and infinities give 0.
uint16_t temp_to_code10(float temp);

// The reader's decoding of a logged code. For negative codes with quarter
// bits it adds an extra -1.0 (0x3FF reads -1.25), so it is not the inverse
// of temp_to_code10; readers and tags out there agree on exactly this.
float code10_to_temp(uint16_t code);

}  // namespace uhf
