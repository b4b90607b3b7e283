// Linked into every program of a sanitizer build.
//
// libparted's own start-up code, run before main, trips AddressSanitizer's
// string interceptors; errors raised in interceptors called from that library
// are waived, everything else is still reported.
extern "C" const char* __asan_default_suppressions()
{
    return "interceptor_via_lib:libparted.so\n";
}
