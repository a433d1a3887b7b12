# The commands of this repository.  Each installs the Debian packages that it needs if they are
# missing (as root, or with sudo).

.PHONY: help demo test simulate simulate-mutants simulate-coverage bench fuzz soak windows package deb check-packages install uninstall format lint clean

help:
	@echo 'make demo     build, and show a scanner and a host talking through the library'
	@echo 'make test     build and run every test'
	@echo 'make simulate lives of the service on a simulated machine: SEEDS=n, or SEED=n for one with its diary'
	@echo 'make simulate-mutants   plant faults into copies of the rooms, and count the lives that find each'
	@echo 'make simulate-coverage  the branches that lives reach'
	@echo 'make bench    measure the library beside others, and print a table'
	@echo 'make fuzz     fuzz for SECONDS=300, all targets or TARGETS="..."'
	@echo 'make soak     ten minutes of everything at once (MINUTES=n), watched for what grows'
	@echo 'make windows  build ZVQRN.dll and the tools for 32-bit and 64-bit Windows'
	@echo 'make package  make the packages for host programmers, in build/packages/'
	@echo 'make deb      make the packages for Debian, there too'
	@echo 'make check-packages   use all packages in a clean Debian, as the host guide says (as root)'
	@echo 'make install  build, and put library, headers and tools under PREFIX=/usr/local, in DESTDIR if set'
	@echo 'make uninstall  remove what make install has put there'
	@echo 'make format   lay out the source files'
	@echo 'make lint     check the source files'
	@echo 'make clean    remove everything that was built'

demo:
	@scripts/install_packages.sh build
	@scripts/build.sh release
	@scripts/demo.sh build/release

test:
	@scripts/install_packages.sh test
	@scripts/run_tests.sh

SEEDS = 100000
simulate:
	@scripts/install_packages.sh build
	@scripts/build.sh simulation
	@build/simulation/simulate $(if $(SEED),--seed $(SEED),--kept simulation/seeds/kept.txt --seeds $(SEEDS))

simulate-mutants:
	@scripts/install_packages.sh build
	@scripts/simulate_mutants.sh $(MUTANTS)

simulate-coverage:
	@scripts/install_packages.sh fuzz
	@scripts/simulate_coverage.sh $(SEEDS)

bench:
	@scripts/install_packages.sh bench
	@scripts/bench.sh $(BENCH_OPTIONS)

SECONDS = 300
fuzz:
	@scripts/install_packages.sh fuzz
	@scripts/fuzz.sh $(SECONDS) $(TARGETS)

soak:
	@scripts/install_packages.sh build
	@scripts/build.sh release
	@scripts/soak.sh $(MINUTES)

windows:
	@scripts/install_packages.sh package
	@scripts/build.sh windows-x86 windows-x64

package:
	@scripts/install_packages.sh package
	@scripts/build.sh release windows-x86 windows-x64
	@scripts/package.sh

deb:
	@scripts/install_packages.sh deb
	@scripts/make_deb.sh

check-packages: package deb
	@scripts/install_packages.sh check-packages
	@scripts/check_deb.sh
	@scripts/check_clean_hosts.sh

PREFIX = /usr/local
install:
	@scripts/install_packages.sh build
	@scripts/build.sh release
	@scripts/install.sh install "$(PREFIX)"

uninstall:
	@scripts/install.sh uninstall

format:
	@scripts/install_packages.sh test
	@find src include tools tests bench fuzz simulation examples packaging -name '*.c' -o -name '*.cpp' -o -name '*.h' -o -name '*.hpp' | xargs clang-format -i

lint:
	@scripts/install_packages.sh test
	@cmake --preset debug >/dev/null
	@scripts/lint.sh

clean:
	@rm -rf build
