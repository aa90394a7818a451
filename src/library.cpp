// The shared library is the sum of its static libraries; a target needs at least one source.
