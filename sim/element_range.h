// Controller elements as an operator names them ("D100", "D0-D9", "X10-X17",
// "TD5"; X and Y in octal) turned into the coil or register addresses the
// controller serves them at, through the driver's own address map.
#ifndef RVSIM_ELEMENT_RANGE_H
#define RVSIM_ELEMENT_RANGE_H

#include <string>
#include <vector>

struct ElementRange {
    bool coils = false;          // bit areas live in the coil space, word areas in the registers
    std::vector<int> addresses;  // one per element, in element order
};

// False with a one-line reason for an unknown element, a range that leaves
// its area or runs past the area's end.
bool parseElementRange(const std::string &text, ElementRange &out, std::string &error);

#endif
