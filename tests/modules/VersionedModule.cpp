// A module that carries version data; the tests read that data from its file without loading it.
extern "C" int zmuVersionedModuleMarker()
{
    return 1;
}
