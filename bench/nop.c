/* A child that does nothing, so that only its parent is measured. */
int main(void)
{
    return 0;
}
