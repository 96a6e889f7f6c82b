// Alone in its source: whoever gives the reader another bridge does not need the embedded interpreter.
#include "ilorest-helper.h"
#include "ilorest-reader.h"

iLoRestReader::iLoRestReader() : iLoRestReader(std::make_unique<iLoRestHelper>()) {}
