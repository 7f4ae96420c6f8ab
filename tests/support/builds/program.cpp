// A program that starts wherever everything that it calls is found, and ends well.
extern "C" {
int firstOf();
int secondOf();
int plainFirst();
int plainSecond();
int extraFirst();
}

int main()
{
    int sum = firstOf() + plainFirst();
#ifdef PROGRAM_version
    sum += secondOf();
#endif
#ifdef PROGRAM_function
    sum += plainSecond();
#endif
#ifdef PROGRAM_library
    sum += extraFirst();
#endif
    return sum > 0 ? 0 : 1;
}
