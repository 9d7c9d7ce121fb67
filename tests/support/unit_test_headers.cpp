// Builds the test programs' precompiled header, unit_test_headers.h, which
// the build includes ahead of this file; the object is linked nowhere.
