// Each layer of the library is linked into this program with only the layers below it.
int main()
{
    return 0;
}
