extern "C" int bystander(void);

int main() {
    return bystander();
}
