// A log replaces its address lists at each change of the configuration and never frees them.

extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:OSTREL::ConfigUtils::ReadIpList\n";
}
