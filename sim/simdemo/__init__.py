"""The demonstration: the real service watches a simulated server while its drives go bad."""
