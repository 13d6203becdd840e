int bystander(void);

int bystander(void) {
    return 0;
}
