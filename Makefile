# The front door. Each command does all its own set-up.
.PHONY: demo gateway test packages sanitize fuzz bench lint format clean

demo:
	scripts/setup demo
	cmake --preset linux -DPTZD_TESTS=OFF -DPTZD_GATEWAY=OFF
	cmake --build --preset linux --target ptzctl ptzsim
	scripts/demo build/linux

# ptzgate, with what gives it cameras, into build/linux.
gateway:
	scripts/setup gateway
	cmake --preset linux -DPTZD_TESTS=OFF -DPTZD_GATEWAY=ON
	cmake --build --preset linux --target ptzctl ptzsim ptzgate

# WITHIN=SECONDS leaves what is not done by then, and names it.
test:
	scripts/test $(WITHIN)

# Into build/packages, for Debian and Windows.
packages:
	scripts/packages

# Address and undefined-behaviour sanitizers over all suites; the thread sanitizer, which needs the address space as it
# always was, over what works in several threads.
sanitize:
	scripts/setup test
	cmake --preset linux-asan
	cmake --build --preset linux-asan
	ctest --preset linux-asan
	cmake --preset linux-tsan
	cmake --build --preset linux-tsan
	setarch -R ctest --preset linux-tsan

# Each fuzz target for so long: make fuzz SECONDS=300. A crash is kept as a file.
SECONDS ?= 60
fuzz:
	scripts/setup demo fuzz
	cmake --preset linux-fuzz
	cmake --build --preset linux-fuzz
	scripts/fuzz build/linux-fuzz $(SECONDS)

bench:
	scripts/setup bench
	cmake --preset bench
	cmake --build --preset bench
	scripts/bench build/bench

lint:
	scripts/setup lint
	scripts/check
	cmake --preset linux -DPTZD_GATEWAY=ON
	cmake --preset bench
	scripts/lint build/linux build/bench

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build
