"""Building blocks of samples/generate.py: cipher bindings, CAVP text
helpers, request builders, reference answers and the NIST cross-check."""
