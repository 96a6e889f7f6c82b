#include "file-descriptor.h"

#include <unistd.h>

namespace tovaserverutil {

void FileDescriptor::reset(int descriptor) {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
    m_descriptor = descriptor;
}

}  // namespace tovaserverutil
