# <build>/product is a complete product folder, ready to run.
set(HX_PRODUCT_DIR ${CMAKE_BINARY_DIR}/product)

# The same folder below an installation's prefix, whatever that calls its library folder.
set(HX_INSTALL_PRODUCT_DIR lib/corvane26)
set(HX_INSTALL_INCLUDE_DIR include/HXInstallBase)

# The product keeps its Qt beside its binaries.
set(HX_PRODUCT_RPATH "$ORIGIN:$ORIGIN/ssl-compat:$ORIGIN/Qt-6.5/lib")

# Puts a target's file into the product folder with the product's run-time path.
function(hx_place_in_product target)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${HX_PRODUCT_DIR}
    LIBRARY_OUTPUT_DIRECTORY ${HX_PRODUCT_DIR}
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "${HX_PRODUCT_RPATH}")
endfunction()
