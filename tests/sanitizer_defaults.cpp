// Options of the sanitizers. They are compiled into everything that is built with sanitizers, so they also
// apply if a test gives the program another environment.

// A finding ends the process by a signal, which no test expects; many tests expect a status of 1.
extern "C" const char *__asan_default_options()
{
    return "abort_on_error=1:detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1";
}

extern "C" const char *__ubsan_default_options()
{
    return "abort_on_error=1:print_stacktrace=1";
}
