// A module with no string loader: string look-ups in it find nothing.
extern "C" __attribute__((visibility("default"))) int zmuPlainModuleMarker()
{
    return 7;
}
