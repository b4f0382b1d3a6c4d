# The library generator is shared by every benchmark that needs a realistic library.
add_library(velto_bench_support STATIC ${CMAKE_CURRENT_LIST_DIR}/library_generator.cc)
target_link_libraries(velto_bench_support PUBLIC VeltoCore)
target_link_libraries(library_bench PRIVATE velto_bench_support simdjson::simdjson)
