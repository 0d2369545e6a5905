// A log replaces its address lists at each change of the configuration and never frees them. The
// sanitizer's library looks the function up in the program, so it must be visible.

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:OSTREL::ConfigUtils::ReadIpList\n";
}
