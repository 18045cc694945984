// In place of the C library's in every test executable: a test leaves the machine's log alone. Weak, so
// that a test may have one of its own.
extern "C" [[gnu::weak]] void syslog(int, const char*, ...) {}
