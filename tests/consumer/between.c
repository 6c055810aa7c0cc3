int between(void);

int between(void)
{
  return 0;
}
