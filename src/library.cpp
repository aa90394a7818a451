// The shared library is the sum of its rooms; a target needs one source of its own.
