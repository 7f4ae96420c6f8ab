extern "C" {
int plainFirst()
{
    return 1;
}
#ifdef RELEASE_2
int plainSecond()
{
    return 2;
}
#endif
}
