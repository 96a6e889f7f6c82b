"""The stand-ins for ssacli and storcli64: what they find, how they misbehave, what they were asked.

See ../README.md.
"""
