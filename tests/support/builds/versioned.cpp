extern "C" {
int firstOf()
{
    return 1;
}
#ifdef RELEASE_2
int secondOf()
{
    return 2;
}
#endif
}
