# Thin convenience layer: the build itself is CMake's.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
# AddressSanitizer, UndefinedBehaviorSanitizer and the fuzz targets, built with clang.
SANITIZE_DIR ?= build-sanitize
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all deps configure build sanitize run test format clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)

build: configure
	cmake --build $(BUILD_DIR) --parallel $(JOBS)

run: build
	$(BUILD_DIR)/app/velmarin

sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DVELMARIN_SANITIZE=ON -DVELMARIN_FUZZ=ON
	cmake --build $(SANITIZE_DIR) --parallel $(JOBS)

# The whole suite twice: the ordinary build, then the sanitizer build with the fuzz targets' short runs.
test: build
	cd $(BUILD_DIR) && ctest --output-on-failure --no-tests=error --parallel $(JOBS)
	$(MAKE) sanitize
	cd $(SANITIZE_DIR) && ctest --output-on-failure --no-tests=error --parallel $(JOBS)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
