// How the sanitizers report, compiled into everything that is built with them, so that it also holds where a
// test gives the program an environment of its own.

// A finding ends the process by a signal: no test expects one, while a status of 1 is what many expect.
extern "C" const char *__asan_default_options()
{
    return "abort_on_error=1:detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1";
}

extern "C" const char *__ubsan_default_options()
{
    return "abort_on_error=1:print_stacktrace=1";
}
