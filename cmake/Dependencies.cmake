# Everything comes from the distribution's packages; ./run installs them.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(Threads REQUIRED)
find_package(cereal REQUIRED)
find_package(CLI11 REQUIRED)

# The distribution's own Python, never one that merely stands first on PATH: the service embeds the library that
# the distribution maintains. -DPython3_EXECUTABLE= overrides.
if(NOT Python3_EXECUTABLE)
    set(Python3_EXECUTABLE /usr/bin/python3)
endif()
find_package(Python3 3.9 REQUIRED COMPONENTS Interpreter Development.Embed)
