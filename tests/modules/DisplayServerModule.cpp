// The product's display server module "ds.dll": its flush entry counts the calls.
extern "C" {
__attribute__((visibility("default"))) int dsFlushCount = 0;
}

extern "C" __attribute__((visibility("default"))) void dsFlushDisplayServer()
{
    ++dsFlushCount;
}
