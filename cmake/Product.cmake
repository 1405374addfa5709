# <build>/product is a complete product directory, ready to run.
set(HX_PRODUCT_DIR ${CMAKE_BINARY_DIR}/product)

# The same directory below an installation's prefix, independent of the prefix's library directory.
set(HX_INSTALL_PRODUCT_DIR lib/corvane26)
set(HX_INSTALL_INCLUDE_DIR include/HXInstallBase)

# The product's Qt is in the product directory.
set(HX_PRODUCT_RPATH "$ORIGIN:$ORIGIN/ssl-compat:$ORIGIN/Qt-6.5/lib")

# Builds a target's file in the product directory with the product's run-time path.
function(hx_place_in_product target)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${HX_PRODUCT_DIR}
    LIBRARY_OUTPUT_DIRECTORY ${HX_PRODUCT_DIR}
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "${HX_PRODUCT_RPATH}")
endfunction()
