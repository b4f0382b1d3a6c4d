# The large icons are made by the same encoders as the decoders' tests use.
target_link_libraries(icon_bench PRIVATE velto_test_images)
