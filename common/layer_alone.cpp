// The program that a layer of the library is linked into with the layers below it and no others.
int main()
{
    return 0;
}
