extern "C" int extraFirst()
{
    return 1;
}
